#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Result.h"

/// Why a verification fails: one of the platform's reasons, and what exactly differs.
namespace toolchain {

enum class Fault {
  unsignedCode,
  invalidSignature,
  invalidInfoPlist,
  invalidResourceDirectory,
  sealedResource,
  missingResources,
  nestedCode,
  bundleFormat,
  objectFormat,
  strictValidation,
};

/// The platform's own words for it.
std::string_view reason(Fault fault);

/// "REASON: DETAIL", REASON alone when there is no detail.
foundation::Error faultError(Fault fault, const std::string& detail = {});

/// The two parts of such a description; a text that begins with none of the reasons is all detail,
/// and gets `otherwise` for its reason.
struct FaultParts {
  std::string reason;
  /// Empty: none.
  std::string detail;
};
FaultParts faultParts(const foundation::Error& error, Fault otherwise);

}  // namespace toolchain

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

/// Description "REASON: DETAIL" (REASON alone when there is no detail), code 1 and the two parts in
/// the user info under the keys below.
foundation::Error faultError(Fault fault, const std::string& detail = {});
inline constexpr std::string_view kReasonKey = "reason";
inline constexpr std::string_view kDetailKey = "detail";

/// The parts of such an error; any other error is given `otherwise` as its reason, and its
/// description as detail.
struct FaultParts {
  std::string reason;
  /// Empty: none.
  std::string detail;
};
FaultParts faultParts(const foundation::Error& error, Fault otherwise);

}  // namespace toolchain

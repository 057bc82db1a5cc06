#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Result.h"

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

/// The platform's own wording.
std::string_view reason(Fault fault);

/// An error that carries its kind: domain "SignatureFaultDomain", the fault's number as code,
/// described as "REASON: DETAIL", or REASON alone when there is no detail.
foundation::Error faultError(Fault fault, const std::string& detail = {});

/// Turns an error of any kind into such an error, with its description as detail; for
/// `Result::mapError`.
inline auto asFault(Fault fault) {
  return [fault](const foundation::Error& error) {
    return faultError(fault, error.localizedDescription());
  };
}

/// What such an error carries. Of an error of any other kind the whole description is the detail,
/// and `otherwise` the fault.
struct FaultParts {
  Fault fault;
  /// Empty: none.
  std::string detail;
};
FaultParts faultParts(const foundation::Error& error, Fault otherwise);

}  // namespace toolchain

#include "toolchain/common/SignatureFault.h"

#include <array>

#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

constexpr std::string_view kSignatureFaultDomain = "SignatureFaultDomain";

/// By fault.
constexpr std::array<std::string_view, 10> kReasons = {
    "code object is not signed at all",
    "invalid signature (code or signature have been modified)",
    "invalid Info.plist (plist or signature have been modified)",
    "invalid resource directory (directory or signature have been modified)",
    "a sealed resource is missing or invalid",
    "code has no resources but signature indicates they must be present",
    "nested code is modified or invalid",
    "bundle format unrecognized, invalid, or unsuitable",
    "object file format unrecognized, invalid, or unsuitable",
    "main executable failed strict validation",
};
static_assert(kReasons.size() == static_cast<std::size_t>(Fault::strictValidation) + 1);

}  // namespace

std::string_view reason(Fault fault) { return kReasons.at(static_cast<std::size_t>(fault)); }

foundation::Error faultError(Fault fault, const std::string& detail) {
  const std::string text(reason(fault));
  auto error = foundation::makeError(kSignatureFaultDomain, static_cast<long>(fault),
                                     detail.empty() ? text : text + ": " + detail);
  error.userInfo.emplace(kDetailKey, detail);
  return error;
}

FaultParts faultParts(const foundation::Error& error, Fault otherwise) {
  if (error.domain != kSignatureFaultDomain) return {otherwise, error.localizedDescription()};
  return {static_cast<Fault>(error.code),
          foundation::stringAt(error.userInfo, kDetailKey).value_or("")};
}

}  // namespace toolchain

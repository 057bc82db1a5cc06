#include "toolchain/common/SignatureFault.h"

#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

constexpr std::string_view kSignatureFaultDomain = "SignatureFaultDomain";

}  // namespace

std::string_view reason(Fault fault) {
  switch (fault) {
    case Fault::unsignedCode:
      return "code object is not signed at all";
    case Fault::invalidSignature:
      return "invalid signature (code or signature have been modified)";
    case Fault::invalidInfoPlist:
      return "invalid Info.plist (plist or signature have been modified)";
    case Fault::invalidResourceDirectory:
      return "invalid resource directory (directory or signature have been modified)";
    case Fault::sealedResource:
      return "a sealed resource is missing or invalid";
    case Fault::missingResources:
      return "code has no resources but signature indicates they must be present";
    case Fault::nestedCode:
      return "nested code is modified or invalid";
    case Fault::bundleFormat:
      return "bundle format unrecognized, invalid, or unsuitable";
    case Fault::objectFormat:
      return "object file format unrecognized, invalid, or unsuitable";
    case Fault::strictValidation:
      return "main executable failed strict validation";
  }
  return "";
}

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

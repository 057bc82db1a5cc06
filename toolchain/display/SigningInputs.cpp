#include "toolchain/display/SigningInputs.h"

#include "foundation/format/PropertyList.h"
#include "package/AppPackage.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/display/private/SignedCode.h"

namespace toolchain {

namespace {

using foundation::Dictionary;

/// True for a signature that determines rules and entitlements.
bool isSignedByPeople(const SignedCode& code) {
  return code.signature && !code.signature->isLinkerSigned();
}

Result<std::string> rulesText(const ResourceRules& rules) {
  Dictionary dictionary;
  if (!rules.rules.empty()) dictionary.emplace("rules", value(rules.rules));
  if (!rules.rules2.empty()) dictionary.emplace("rules2", value(rules.rules2));
  return foundation::PropertyList::xml(dictionary);
}

ResourceRules defaultRulesFor(const CodeBundle& code) {
  return defaultResourceRules(code.hasResourcesFolder() ? BundleShape::withResources
                                                        : BundleShape::flat);
}

Result<std::string> profileEntitlements(const CodeBundle& code) {
  if (!code.isBundle()) return foundation::PropertyList::xml(Dictionary());
  const auto profile = package::AppPackage(code.base).profile();
  if (!profile) return profile.error();
  return foundation::PropertyList::xml(*profile ? (*profile)->entitlementsFor(code.identifier)
                                                : Dictionary());
}

}  // namespace

Result<SigningInputs> signingInputs(const std::filesystem::path& path) {
  const auto code = SignedCode::open(path);
  if (!code) return code.error();
  SigningInputs inputs;
  inputs.isSigned = code->signature.has_value();
  const bool speaks = isSignedByPeople(*code);
  const auto seal = code->seal();
  if (speaks && !seal) return seal.error();
  const bool hasRules = speaks && seal->has_value();
  auto rules = rulesText(hasRules ? (*seal)->rules : defaultRulesFor(code->code));
  if (!rules) return rules.error();
  auto entitlements =
      speaks ? code->signature->entitlementsText().mapError(asFault(Fault::invalidSignature))
             : profileEntitlements(code->code);
  if (!entitlements) return entitlements.error();
  inputs.resourceRules = *std::move(rules);
  inputs.entitlements = *std::move(entitlements);
  return inputs;
}

}  // namespace toolchain

#include "toolchain/display/SigningInputs.h"

#include "foundation/format/PropertyList.h"
#include "package/AppPackage.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/display/private/SignedCode.h"

namespace toolchain {

namespace {

using foundation::Dictionary;

Result<std::string> rulesText(const ResourceRules& rules) {
  Dictionary dictionary;
  if (!rules.rules.empty()) dictionary.emplace("rules", value(rules.rules));
  if (!rules.rules2.empty()) dictionary.emplace("rules2", value(rules.rules2));
  return foundation::PropertyList::xml(dictionary);
}

Result<std::string> profileEntitlements(const CodeBundle& code) {
  if (!code.isBundle()) return foundation::PropertyList::xml(Dictionary());
  return package::AppPackage(code.base).profile().andThen([&](const auto& profile) {
    return foundation::PropertyList::xml(profile ? profile->entitlementsFor(code.identifier)
                                                 : Dictionary());
  });
}

}  // namespace

Result<SigningInputs> signingInputs(const std::filesystem::path& path) {
  const auto code = SignedCode::open(path);
  if (!code) return code.error();
  // Only such a signature says anything about rules and entitlements.
  const bool speaks = code->signature && !code->signature->isLinkerSigned();
  const auto seal = code->seal();
  if (speaks && !seal) return seal.error();
  const bool hasRules = speaks && seal->has_value();
  auto rules = rulesText(hasRules ? (*seal)->rules : defaultResourceRules(code->code.shape()));
  if (!rules) return rules.error();
  auto entitlements =
      speaks ? code->signature->entitlementsText().mapError(asFault(Fault::invalidSignature))
             : profileEntitlements(code->code);
  if (!entitlements) return entitlements.error();
  return SigningInputs{code->signature.has_value(), *std::move(rules), *std::move(entitlements)};
}

}  // namespace toolchain

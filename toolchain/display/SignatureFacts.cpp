#include "toolchain/display/SignatureFacts.h"

#include <algorithm>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Entitlements.h"

namespace toolchain {

Result<SignatureFacts> signatureFacts(const std::filesystem::path& code, RootTest isAppleRoot) {
  const auto opened = CodeBundle::open(code).andThen(openImage);
  if (!opened) return opened.error();
  SignatureFacts facts;
  facts.isEncrypted = std::ranges::any_of(
      opened->image.slices(), [](const Slice& slice) { return slice.cryptIdentifier != 0; });
  const Slice& slice = chosenSlice(opened->image, SlicePolicy::deviceFirst);
  if (!slice.signature) return facts;
  const auto signature = EmbeddedSignature::parse(opened->image.signatureArea(slice));
  if (!signature) return signature.error();
  facts.isSigned = true;
  const auto signer = signature->checkedSigner();
  facts.isApplesOwn = signer && *signer && isAppleOwn((*signer)->chain, isAppleRoot);
  facts.teamIdentifier = signature->primary().fields.teamIdentifier;
  const auto text = signature->entitlementsText();
  if (!text) return text.error();
  if (text->empty()) return facts;
  return parseEntitlements(foundation::bytesOf(*text)).map([&](Entitlements entitlements) {
    facts.entitlements = std::move(entitlements.dictionary);
    return facts;
  });
}

}  // namespace toolchain

#include "toolchain/display/SignatureFacts.h"

#include <algorithm>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/signature/Blobs.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/SignatureContent.h"

namespace toolchain {

namespace {

bool isEncrypted(const MachOFile& image) {
  return std::ranges::any_of(image.slices(), [](const auto& s) { return s.cryptIdentifier != 0; });
}

Result<> readEntitlements(const SuperBlob& signature, SignatureFacts& facts) {
  const auto* entry = signature.find(slot::kEntitlements);
  if (!entry) return {};
  const auto payload = blobPayload(entry->bytes, magic::kEntitlements);
  if (!payload) return payload.error();
  if (payload->empty()) return {};
  auto entitlements = parseEntitlements(*payload);
  if (!entitlements) return entitlements.error();
  facts.entitlements = std::move(entitlements->dictionary);
  return {};
}

bool isApplesOwn(const SuperBlob& signature, const std::vector<CodeDirectory>& directories,
                 RootTest isAppleRoot) {
  const auto signer = checkedSigner(signature, directories);
  return signer && *signer && isAppleOwn((*signer)->chain, isAppleRoot);
}

Result<> readSignature(foundation::Bytes area, RootTest isAppleRoot, SignatureFacts& facts) {
  const auto signature = SuperBlob::parse(area, magic::kEmbeddedSignature);
  if (!signature) return signature.error();
  const auto directories = codeDirectories(*signature);
  if (!directories) return directories.error();
  facts.isSigned = true;
  facts.isApplesOwn = isApplesOwn(*signature, *directories, isAppleRoot);
  facts.teamIdentifier = directories->front().fields.teamIdentifier;
  return readEntitlements(*signature, facts);
}

}  // namespace

Result<SignatureFacts> signatureFacts(const std::filesystem::path& code, RootTest isAppleRoot) {
  const auto bundle = CodeBundle::open(code);
  if (!bundle) return bundle.error();
  const auto opened = openImage(*bundle);
  if (!opened) return opened.error();
  SignatureFacts facts;
  facts.isEncrypted = isEncrypted(opened->image);
  const auto& slices = opened->image.slices();
  if (slices.empty() || !slices.front().signature) return facts;
  const auto read = readSignature(opened->image.signatureArea(slices.front()), isAppleRoot, facts);
  if (!read) return read.error();
  return facts;
}

}  // namespace toolchain

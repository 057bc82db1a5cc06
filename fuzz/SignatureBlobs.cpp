// The blobs of a code signature: the superblob with all that is in it.
#include "fuzz/FuzzTarget.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"
#include "toolchain/signature/SignatureContent.h"

namespace {

using foundation::Bytes;

void readRequirements(Bytes blob) {
  const auto set = toolchain::parseRequirementSet(blob);
  if (!set) return;
  for (const auto& entry : *set) {
    const auto expression = toolchain::parseRequirement(entry.blob);
    if (!expression) continue;
    fuzz::ignore(toolchain::text(*expression));
    const auto written = toolchain::makeRequirement(*expression);
    fuzz::require(toolchain::parseRequirement(written).ok());
  }
}

void readDirectory(const toolchain::CodeDirectory& directory) {
  const std::size_t size = toolchain::hashSize(directory.fields.hashType);
  fuzz::require(directory.codeHashes().size() == size * directory.codeSlotCount);
  for (std::uint32_t slot = 1; slot <= directory.specialSlotCount; ++slot) {
    fuzz::require(directory.specialHash(slot).size() == size);
  }
  fuzz::require(directory.cdHash().size() == 20);
  fuzz::ignore(toolchain::checkUnused(directory));
}

void readSignature(const toolchain::SuperBlob& signature) {
  for (const auto& entry : signature.entries()) readRequirements(entry.bytes);
  const auto entitlements = toolchain::checkedEntitlements(signature);
  const auto directories = toolchain::codeDirectories(signature);
  if (!directories) return;
  for (const auto& directory : *directories) readDirectory(directory);
  toolchain::RequirementSubject subject{
      .identifier = "com.example.app", .cdHashes = {}, .chain = {}, .info = {}, .entitlements = {}};
  if (entitlements) subject.entitlements = *entitlements;
  const auto signer = toolchain::checkedSigner(signature, *directories);
  if (signer && *signer) subject.chain = (*signer)->chain;
  const auto requirement = toolchain::designatedRequirement(signature);
  if (requirement && *requirement) fuzz::ignore(toolchain::meets(subject, **requirement));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes = fuzz::bytesOf(data, size);
  for (const auto gaps : {toolchain::Gaps::refused, toolchain::Gaps::accepted}) {
    const auto signature =
        toolchain::SuperBlob::parse(bytes, toolchain::magic::kEmbeddedSignature, gaps);
    if (signature) readSignature(*signature);
  }
  fuzz::ignore(toolchain::CodeDirectory::parse(bytes));
  readRequirements(bytes);
  return 0;
}

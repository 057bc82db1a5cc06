// The blobs of a code signature: the superblob with all that is in it.
#include "fuzz/FuzzTarget.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"

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

void readSignature(const toolchain::EmbeddedSignature& signature) {
  for (const auto& directory : signature.directories) readDirectory(directory);
  toolchain::RequirementSubject subject{
      .identifier = "com.example.app", .cdHashes = {}, .chain = {}, .info = {}, .entitlements = {}};
  if (const auto entitlements = signature.checkedEntitlements()) {
    subject.entitlements = *entitlements;
  }
  const auto signer = signature.checkedSigner();
  if (signer && *signer) subject.chain = (*signer)->chain;
  const auto requirement = signature.designatedRequirement();
  if (requirement && *requirement) fuzz::ignore(toolchain::meets(subject, **requirement));
}

}  // namespace

void fuzz::readInput(Bytes bytes) {
  for (const auto gaps : {toolchain::Gaps::refused, toolchain::Gaps::accepted}) {
    if (const auto blobs =
            toolchain::SuperBlob::parse(bytes, toolchain::magic::kEmbeddedSignature, gaps)) {
      for (const auto& entry : blobs->entries()) readRequirements(entry.bytes);
    }
    if (const auto signature = toolchain::EmbeddedSignature::parse(bytes, gaps)) {
      readSignature(*signature);
    }
  }
  fuzz::ignore(toolchain::CodeDirectory::parse(bytes));
  readRequirements(bytes);
}

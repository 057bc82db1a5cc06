#include "tests/support/Test.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Entitlements.h"

namespace {

using namespace toolchain;

/// A superblob of CodeDirectories of these types and of further blobs.
std::vector<std::byte> signatureOf(
    const std::vector<std::pair<std::uint32_t, HashType>>& directories,
    std::map<std::uint32_t, std::vector<std::byte>> blobs = {}) {
  for (const auto& [slot, type] : directories) {
    CodeDirectoryFields fields;
    fields.hashType = type;
    blobs[slot] = makeCodeDirectory(fields, {}, {});
  }
  std::vector<BlobEntry> entries;
  for (const auto& [slot, blob] : blobs) entries.push_back({slot, blob});
  return makeSuperBlob(magic::kEmbeddedSignature, entries);
}

TEST(EmbeddedSignatureTest, HasAPrimaryDirectoryAndOneOfEachType) {
  const auto sha1 = HashType::sha1;
  const auto sha256 = HashType::sha256;
  const auto sha384 = HashType::sha384;
  const auto good = signatureOf({{0, sha1}, {0x1000, sha384}, {0x1001, sha256}, {0x1005, sha256}});
  const auto parsed = EmbeddedSignature::parse(keepForFuzzing("SignatureBlobs", good));
  ASSERT_TRUE(parsed) << problemOf(parsed);
  EXPECT_EQ(parsed->directories.size(), 3U) << "the last slot is not for directories";
  EXPECT_EQ(parsed->primary().fields.hashType, sha1);
  EXPECT_EQ(parsed->strongest().fields.hashType, sha384);
  EXPECT_EQ(problemOf(EmbeddedSignature::parse(signatureOf({{0x1000, sha256}}))),
            "the signature has no CodeDirectory");
  EXPECT_EQ(problemOf(EmbeddedSignature::parse(signatureOf({{0, sha256}, {0x1004, sha256}}))),
            "slot 0x1004: a second CodeDirectory of type sha256");
}

TEST(EmbeddedSignatureTest, EntitlementsMayBeThereInDERFormAlone) {
  const Dictionary entitlements = {{"beta-reports-active", true}};
  const auto blob = entitlementsDERBlob(*makeEntitlements(entitlements));
  const auto whole = signatureOf({{0, HashType::sha256}}, {{slot::kEntitlementsDER, blob}});
  EXPECT_EQ(*EmbeddedSignature::parse(whole)->entitlementsText(), plist(entitlements));
}

}  // namespace

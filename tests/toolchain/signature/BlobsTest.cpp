#include "tests/toolchain/signature/Patched.h"
#include "toolchain/signature/Blobs.h"

namespace {

using namespace toolchain;

TEST(BlobsTest, DamageOfASuperBlobIsNamed) {
  const auto first = makeBlob(magic::kWrapper, bytesOf("one"));
  const auto second = makeBlob(magic::kWrapper, bytesOf("three"));
  const auto good = makeSuperBlob(magic::kEmbeddedSignature, {{5, second}, {2, first}});
  const auto parsed = SuperBlob::parse(good, magic::kEmbeddedSignature);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(textOf(parsed->find(2)->subspan(8)), "one");
  EXPECT_EQ(textOf(parsed->find(5)->subspan(8)), "three");
  EXPECT_FALSE(parsed->find(3));
  for (const Damage& row : {
           Damage{"truncated", 0, magic::kEmbeddedSignature, "of 11 bytes is truncated", 11},
           Damage{"magic", 0, 1, "superblob magic is 0x1, not 0xfade0cc0"},
           Damage{"longer than its area", 4, 1000, "superblob length 1000 does not fit its area"},
           Damage{"shorter than its header", 4, 11, "superblob length 11 does not fit"},
           Damage{"ends early", 4, 51, "entry 1 of 2: blob at 39 runs past the superblob"},
           Damage{"ends late", 4, 53, "superblob length 53 is not 52, where its last blob ends",
                  60},
           Damage{"count", 8, 0x20000000, "superblob count 536870912 does not fit its length 52"},
           Damage{"slots descend", 12, 6, "entry 1 of 2: slot 0x5 does not ascend"},
           Damage{"slot twice", 12, 5, "entry 1 of 2: slot 0x5 does not ascend"},
           Damage{"gap", 16, 32, "entry 0 of 2: offset 32 is not 28"},
           Damage{"overlap", 24, 28, "entry 1 of 2: offset 28 is not 39"},
           Damage{"blob too short", 32, 7, "blob at 28 runs past"},
           Damage{"blob too long", 32, 0xffffffff, "blob at 28 runs past"},
       }) {
    const auto bad = patched(good, row);
    EXPECT_THAT(problemOf(SuperBlob::parse(keepForFuzzing("SignatureBlobs", bad),
                                           magic::kEmbeddedSignature)),
                HasSubstr(row.complaint))
        << row.name;
  }
}

TEST(BlobsTest, GapsAreAcceptedWhereNothingIsVerified) {
  const auto first = makeBlob(magic::kWrapper, bytesOf("12345678"));
  const auto second = makeBlob(magic::kWrapper, {});
  const auto good = makeSuperBlob(magic::kEmbeddedSignature, {{1, first}, {2, second}});
  for (const Damage& row : {
           Damage{"shorter than its place", 32, 12, ""},
           Damage{"bytes after the last", 4, 60, "", 60},
           Damage{"overlap", 24, 40, "offset 40 is not 44"},
           Damage{"beyond the end", 24, 53, "offset 53 is not 44"},
           Damage{"at the very end", 24, 52, "blob at 52 runs past"},
       }) {
    const auto bytes = patched(good, row);
    const auto accepted = SuperBlob::parse(keepForFuzzing("SignatureBlobs", bytes),
                                           magic::kEmbeddedSignature, Gaps::accepted);
    EXPECT_THAT(problemOf(accepted), HasSubstr(row.complaint)) << row.name;
    EXPECT_EQ(accepted.ok(), row.complaint.empty()) << row.name;
    EXPECT_FALSE(SuperBlob::parse(bytes, magic::kEmbeddedSignature)) << row.name;
  }
}

TEST(BlobsTest, DamageOfABlobIsNamed) {
  const auto good = makeBlob(magic::kWrapper, bytesOf("one"));
  for (const Damage& row : {
           Damage{"truncated", 0, magic::kWrapper, "blob of 7 bytes is truncated", 7},
           Damage{"magic", 0, 1, "blob magic is 0x1, not 0xfade0b01"},
           Damage{"length", 4, 12, "blob length 12 is not the 11 bytes it has"},
       }) {
    const auto bad = patched(good, row);
    EXPECT_EQ(problemOf(blobPayload(bad, magic::kWrapper)), row.complaint);
  }
}

}  // namespace

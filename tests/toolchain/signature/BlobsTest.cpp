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
  const std::vector<Damage> rows = {
      {"truncated", 0, magic::kEmbeddedSignature, "of 11 bytes is truncated", 11},
      {"magic", 0, 1, "superblob magic is 0x1, not 0xfade0cc0"},
      {"longer than its area", 4, 1000, "superblob length 1000 does not fit its area"},
      {"shorter than its header", 4, 11, "superblob length 11 does not fit"},
      {"ends early", 4, 51, "entry 1 of 2: blob at 39 runs past the superblob"},
      {"ends late", 4, 53, "superblob length 53 is not 52, where its last blob ends", 60},
      {"count", 8, 0x20000000, "superblob count 536870912 does not fit its length 52"},
      {"slots descend", 12, 6, "entry 1 of 2: slot 0x5 does not ascend"},
      {"slot twice", 12, 5, "entry 1 of 2: slot 0x5 does not ascend"},
      {"gap", 16, 32, "entry 0 of 2: offset 32 is not 28"},
      {"overlap", 24, 28, "entry 1 of 2: offset 28 is not 39"},
      {"blob too short", 32, 7, "blob at 28 runs past"},
      {"blob too long", 32, 0xffffffff, "blob at 28 runs past"},
  };
  expectComplaints(good, rows, [](Bytes bytes) {
    return problemOf(SuperBlob::parse(bytes, magic::kEmbeddedSignature));
  });
}

TEST(BlobsTest, GapsAreAcceptedWhereNothingIsVerified) {
  const auto first = makeBlob(magic::kWrapper, bytesOf("12345678"));
  const auto second = makeBlob(magic::kWrapper, {});
  const auto good = makeSuperBlob(magic::kEmbeddedSignature, {{1, first}, {2, second}});
  const std::vector<Damage> rows = {
      {"shorter than its place", 32, 12, ""},
      {"bytes after the last", 4, 60, "", 60},
      {"overlap", 24, 40, "offset 40 is not 44"},
      {"beyond the end", 24, 53, "offset 53 is not 44"},
      {"at the very end", 24, 52, "blob at 52 runs past"},
  };
  expectComplaints(good, rows, [](Bytes bytes) {
    EXPECT_FALSE(SuperBlob::parse(bytes, magic::kEmbeddedSignature));
    return problemOf(SuperBlob::parse(bytes, magic::kEmbeddedSignature, Gaps::accepted));
  });
}

}  // namespace

#include "tests/toolchain/signature/Patched.h"
#include "toolchain/signature/CodeDirectory.h"

namespace {

using namespace toolchain;

CodeDirectoryFields exampleFields() {
  CodeDirectoryFields fields;
  fields.flags = codeflag::kAdHoc;
  fields.codeLimit = 5000;
  fields.identifier = "com.example";
  fields.teamIdentifier = "TEAM";
  return fields;
}

/// For two pages, with this hash in special slot 2.
std::vector<std::byte> directory(std::byte special = std::byte{1}) {
  return makeCodeDirectory(exampleFields(), {{2, std::vector(32, special)}},
                           std::vector<std::byte>(64));
}

TEST(CodeDirectoryTest, IsReadAsItWasWrittenHoweverLargeTheCode) {
  CodeDirectoryFields fields = exampleFields();
  fields.codeLimit = std::uint64_t{5} << 30;
  fields.pageShift = 28;
  const std::vector<std::byte> pages(pageCount(fields.codeLimit, 28) * 32, std::byte{7});
  const std::vector<std::byte> special(32, std::byte{9});
  const auto blob = makeCodeDirectory(fields, {{3, special}}, pages);
  const auto read = CodeDirectory::parse(blob);
  ASSERT_TRUE(read) << problemOf(read);
  EXPECT_EQ(read->fields.codeLimit, fields.codeLimit);
  EXPECT_EQ(textOf(read->specialHash(3)), textOf(special));
  EXPECT_EQ(textOf(read->specialHash(1)), std::string(32, '\0'));
  EXPECT_TRUE(read->specialHash(4).empty());
  EXPECT_EQ(textOf(read->codeHashes()), textOf(pages));
}

TEST(CodeDirectoryTest, DamageIsNamed) {
  const std::vector<Damage> rows = {
      {"truncated", 0, magic::kCodeDirectory, "blob of 7 bytes is truncated", 7},
      {"length", 4, 12, "CodeDirectory: blob length 12"},
      {"shorter than any", 4, 43, "43 bytes are too few", 43},
      {"shorter than its version", 4, 87, "87 bytes are too few for version 0x20400", 87},
      {"old version", 8, 0x20000, "version 0x20000 is not supported"},
      {"new version", 8, 0x30000, "version 0x30000 is not supported"},
      {"hashes outside", 16, 0xffffffff, "hash offset 4294967295 lies outside its"},
      {"special hashes outside", 24, 9, "hash offset"},
      {"too many pages", 28, 3, "hash offset"},
      {"too few pages", 28, 1, "1 page hashes do not fit a code limit of 5000"},
      {"code limit", 32, 50000, "2 page hashes do not fit a code limit of 50000"},
      {"identifier outside", 20, 10000, "identifier offset 10000 lies outside its"},
      {"team outside", 48, 10000, "team offset 10000 lies outside its"},
      {"hash type", 36, 0x2009000c, "hash type 9 is unknown"},
      {"hash size", 36, 0x1402000c, "hash size 20 is not 32"},
      {"page size", 36, 0x20020040, "page size 2^64 is too large"},
  };
  expectComplaints(directory(), rows,
                   [](Bytes bytes) { return problemOf(CodeDirectory::parse(bytes)); });
}

TEST(CodeDirectoryTest, WhatNobodyUsesIsEmpty) {
  const auto good = directory();
  const auto longer = static_cast<std::uint32_t>(good.size() + 4);
  const std::vector<Damage> rows = {
      {"nothing", 12, codeflag::kKnown, ""},
      {"spare field", 40, 1, "spare field 2 is 1, not 0"},
      {"scatter", 44, 88, "scatter offset is 88, not 0"},
      {"other spare field", 52, 1, "spare field 3 is 1, not 0"},
      {"flags", 12, 0x80000002, "flags 0x80000000 are unknown"},
      {"tail", 4, longer, "4 bytes follow the hashes", longer},
  };
  const auto problemWith = [](Bytes bytes) {
    return problemOf(checkUnused(*CodeDirectory::parse(bytes)));
  };
  expectComplaints(good, rows, problemWith);
  EXPECT_THAT(problemWith(directory(std::byte{0})), HasSubstr("special slot 2 is empty"));
}

}  // namespace

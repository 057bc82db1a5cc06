#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolchain/signature/Blobs.h"
#include "toolchain/signature/CodeDirectory.h"

namespace {

using testing::HasSubstr;
using namespace toolchain;

TEST(SuperBlob, DamageIsNamed) {
  const auto first = makeBlob(magic::kWrapper, foundation::bytesOf("one"));
  const auto second = makeBlob(magic::kWrapper, foundation::bytesOf("three"));
  const auto good = makeSuperBlob(magic::kEmbeddedSignature, {{5, second}, {2, first}});
  const auto parsed = SuperBlob::parse(good, magic::kEmbeddedSignature);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(foundation::textOf(parsed->find(2)->subspan(8)), "one");
  EXPECT_FALSE(parsed->find(3));
  struct Case {
    std::string name;
    std::size_t offset;
    std::uint32_t value;
    std::string complaint;
  };
  for (const Case& c : {
           Case{"magic", 0, 1, "superblob magic is 0x1"},
           Case{"longer than its area", 4, 1000, "superblob length 1000"},
           Case{"shorter than its header", 4, 11, "superblob length 11"},
           Case{"ends early", 4, 51, "runs past the superblob"},
           Case{"count", 8, 0x20000000, "superblob count 536870912"},
           Case{"slots descend", 12, 6, "entry 1 of 2: slot 0x5 does not ascend"},
           Case{"slot twice", 12, 5, "does not ascend"},
           Case{"gap", 16, 32, "entry 0 of 2: offset 32 is not 28"},
           Case{"overlap", 24, 28, "entry 1 of 2: offset 28 is not 39"},
           Case{"blob too short", 32, 7, "blob at 28 runs past"},
           Case{"blob too long", 32, 0xffffffff, "blob at 28 runs past"},
       }) {
    SCOPED_TRACE(c.name);
    ByteWriter bad;
    bad.append(good);
    bad.patch32(c.offset, c.value);
    const auto result = SuperBlob::parse(bad.bytes(), magic::kEmbeddedSignature);
    ASSERT_FALSE(result);
    EXPECT_THAT(result.error().localizedDescription(), HasSubstr(c.complaint));
  }
}

CodeDirectoryFields exampleFields() {
  CodeDirectoryFields fields;
  fields.flags = codeflag::kAdHoc;
  fields.codeLimit = 5000;
  fields.identifier = "com.example";
  fields.teamIdentifier = "TEAM";
  fields.execSegmentLimit = 4096;
  fields.execSegmentFlags = execseg::kMainBinary;
  return fields;
}

TEST(CodeDirectory, IsReadAsItWasWritten) {
  for (const std::uint64_t limit : {std::uint64_t{5000}, std::uint64_t{5} << 30}) {
    CodeDirectoryFields fields = exampleFields();
    fields.codeLimit = limit;
    fields.pageShift = 28;
    const std::vector<std::byte> pages(pageCount(limit, 28) * 32, std::byte{7});
    const std::vector<std::byte> special(32, std::byte{9});
    const auto blob = makeCodeDirectory(fields, {{3, special}}, pages);
    const auto read = CodeDirectory::parse(blob);
    ASSERT_TRUE(read) << read.error().localizedDescription();
    EXPECT_EQ(read->fields.codeLimit, limit);
    EXPECT_EQ(read->fields.identifier, "com.example");
    EXPECT_EQ(read->fields.teamIdentifier, "TEAM");
    EXPECT_EQ(read->fields.execSegmentLimit, 4096U);
    EXPECT_EQ(read->specialSlotCount, 3U);
    EXPECT_TRUE(std::ranges::equal(read->specialHash(3), special));
    EXPECT_TRUE(std::ranges::equal(read->specialHash(1), std::vector<std::byte>(32)));
    EXPECT_TRUE(read->specialHash(4).empty());
    EXPECT_TRUE(std::ranges::equal(read->codeHashes(), pages));
  }
}

TEST(CodeDirectory, WhatNobodyUsesIsEmpty) {
  const auto good = [](std::uint32_t last, std::byte value) {
    return makeCodeDirectory(exampleFields(), {{last, std::vector<std::byte>(32, value)}},
                             std::vector<std::byte>(64));
  };
  struct Case {
    std::string name;
    std::size_t offset;
    std::uint32_t value;
    std::string complaint;
    std::vector<std::byte> more = {};
  };
  const auto sound = good(2, std::byte{1});
  const auto size = static_cast<std::uint32_t>(sound.size());
  for (const Case& c : {
           Case{"nothing", 12, codeflag::kKnown, ""},
           Case{"spare field", 40, 1, "spare field 2 is 1, not 0"},
           Case{"scatter", 44, 88, "scatter offset is 88, not 0"},
           Case{"other spare field", 52, 1, "spare field 3 is 1, not 0"},
           Case{"flags", 12, 0x80000002, "flags 0x80000000 are unknown"},
           Case{"tail", 4, size + 4, "4 bytes follow the hashes", std::vector<std::byte>(4)},
       }) {
    ByteWriter bad;
    bad.append(sound);
    bad.append(c.more);
    bad.patch32(c.offset, c.value);
    const auto read = CodeDirectory::parse(bad.bytes());
    ASSERT_TRUE(read) << c.name;
    const auto checked = checkUnused(*read);
    EXPECT_THAT(checked ? "" : checked.error().localizedDescription(), HasSubstr(c.complaint));
    EXPECT_EQ(checked.ok(), c.complaint.empty()) << c.name;
  }
  const auto empty = good(2, std::byte{0});
  EXPECT_THAT(checkUnused(*CodeDirectory::parse(empty)).error().localizedDescription(),
              HasSubstr("special slot 2 is empty"));
}

TEST(CodeDirectory, DamageIsNamed) {
  const auto good = makeCodeDirectory(exampleFields(), {{2, std::vector<std::byte>(32)}},
                                      std::vector<std::byte>(64));
  ASSERT_TRUE(CodeDirectory::parse(good));
  struct Case {
    std::string name;
    std::size_t offset;
    std::uint32_t value;
    std::string complaint;
  };
  for (const Case& c : {
           Case{"length", 4, 12, "blob length 12"},
           Case{"old version", 8, 0x20000, "version 0x20000 is not supported"},
           Case{"new version", 8, 0x30000, "version 0x30000 is not supported"},
           Case{"hashes outside", 16, 0xffffffff, "hash offset 4294967295"},
           Case{"special hashes outside", 24, 9, "hash offset"},
           Case{"too many pages", 28, 3, "hash offset"},
           Case{"too few pages", 28, 1, "1 page hashes do not fit a code limit of 5000"},
           Case{"code limit", 32, 50000, "2 page hashes do not fit a code limit of 50000"},
           Case{"identifier outside", 20, 10000, "identifier offset 10000"},
           Case{"team outside", 48, 10000, "team offset 10000"},
           Case{"hash type", 36, 0x2009000c, "hash type 9 is unknown"},
           Case{"hash size", 36, 0x1402000c, "hash size 20 is not 32"},
           Case{"page size", 36, 0x20020040, "page size 2^64"},
       }) {
    SCOPED_TRACE(c.name);
    ByteWriter bad;
    bad.append(good);
    bad.patch32(c.offset, c.value);
    const auto result = CodeDirectory::parse(bad.bytes());
    ASSERT_FALSE(result);
    EXPECT_THAT(result.error().localizedDescription(), HasSubstr(c.complaint));
  }
}

}  // namespace

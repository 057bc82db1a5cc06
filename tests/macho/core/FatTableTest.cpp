#include "macho/core/Definitions.h"
#include "macho/core/FatTable.h"
#include "tests/support/Test.h"

namespace {

TEST(FatTableTest, EntriesOfBothWidthsAreRead) {
  const std::string narrow = "0000000c 80000009 00004000 00000100 0000000e";
  const std::string wide = "0000000c 80000009 0000000100004000 0000000200000100 0000000e 00000000";
  const struct {
    std::string bytes;
    std::uint64_t size;
    std::uint64_t offset;
    std::uint64_t length;
  } rows[] = {
      {fromHex("cafebabe 00000001" + narrow), 28, 0x4000, 0x100},
      {fromHex("bebafeca 00000001" + narrow), 28, 0x4000, 0x100},
      {fromHex("cafebabf 00000001" + wide), 40, 0x100004000, 0x200000100},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(hexOf(row.bytes));
    const macho::FatTable read(bytesOf(row.bytes));
    EXPECT_EQ(read.count(), 1U);
    EXPECT_EQ(read.size(), row.size);
    const auto entry = read.entry(0);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->cpuType, 12);
    EXPECT_EQ(entry->cpuSubtype, 0x80000009);
    EXPECT_EQ(entry->offset, row.offset);
    EXPECT_EQ(entry->size, row.length);
    EXPECT_EQ(entry->alignment, 14U);
    EXPECT_FALSE(read.entry(0xffffffff)) << "beyond the file";
    EXPECT_FALSE(macho::FatTable(bytesOf(row.bytes).first(row.size - 1)).entry(0)) << "truncated";
  }
  const std::string header = fromHex("cafebabe ffffffff");
  EXPECT_EQ(macho::FatTable(bytesOf(header)).size(), 8 + 20 * 0xffffffffULL) << "as claimed";
  EXPECT_EQ(macho::FatTable(bytesOf(header).first(7)).count(), 0U);
}

}  // namespace

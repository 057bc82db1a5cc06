#include "macho/core/Definitions.h"
#include "macho/core/FatTable.h"
#include "tests/support/Test.h"

namespace {

/// Big-endian, as in the file; the entries follow word by word.
std::string table(std::uint32_t magic, std::uint32_t count,
                  const std::vector<std::uint32_t>& more) {
  std::string bytes = bigEndian(magic, 4) + bigEndian(count, 4);
  for (const std::uint32_t word : more) bytes += bigEndian(word, 4);
  return bytes;
}

TEST(FatTableTest, EntriesOfBothWidthsAreRead) {
  const std::vector<std::uint32_t> narrow = {12, 0x80000009, 0x4000, 0x100, 14};
  const std::vector<std::uint32_t> wide = {12, 0x80000009, 1, 0x4000, 2, 0x100, 14, 0};
  const struct {
    const char* name;
    std::string bytes;
    std::uint64_t size;
    std::uint64_t offset;
    std::uint64_t length;
  } rows[] = {
      {"32 bits", table(macho::FAT_MAGIC, 1, narrow), 28, 0x4000, 0x100},
      {"the other order of the magic", table(macho::FAT_CIGAM, 1, narrow), 28, 0x4000, 0x100},
      {"64 bits", table(0xcafebabf, 1, wide), 40, 0x100004000, 0x200000100},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
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
    EXPECT_FALSE(read.entry(1)) << "beyond the file";
    EXPECT_FALSE(read.entry(0xffffffff));
    EXPECT_FALSE(macho::FatTable(bytesOf(row.bytes).first(row.size - 1)).entry(0)) << "truncated";
  }
  const std::string header = table(macho::FAT_MAGIC, 0xffffffff, {});
  EXPECT_EQ(macho::FatTable(bytesOf(header)).size(), 8 + 20 * 0xffffffffULL) << "as claimed";
  EXPECT_EQ(macho::FatTable(bytesOf(header).first(7)).count(), 0U);
}

}  // namespace

#include "macho/core/LoadCommands.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

TEST(LoadCommandsTest, TheMagicTellsTheHeadersSize) {
  for (const auto& [magic, size] :
       std::vector<std::pair<std::uint32_t, std::uint32_t>>{{macho::MH_MAGIC, 28},
                                                            {macho::MH_CIGAM, 28},
                                                            {macho::MH_MAGIC_64, 32},
                                                            {macho::MH_CIGAM_64, 32},
                                                            {macho::FAT_MAGIC, 0},
                                                            {0, 0}}) {
    const std::string bytes = poked(machO({}, {7, 3}), 0, magic);
    const auto header = macho::headerOf(bytesOf(bytes));
    ASSERT_EQ(header.has_value(), size != 0) << magic;
    if (!header) continue;
    EXPECT_EQ(header->size, size);
    EXPECT_EQ(header->is64Bit, size == 32);
    EXPECT_EQ(header->fields.filetype, macho::MH_EXECUTE);
    const auto truncated = macho::headerOf(bytesOf(bytes).first(8));
    EXPECT_EQ(truncated->fields.cputype, 7);
    EXPECT_EQ(truncated->fields.filetype, 0U) << "beyond the bytes";
  }
}

TEST(LoadCommandsTest, SectionsOfThreeTypesTakeUpNoBytes) {
  for (const auto type :
       {macho::S_ZEROFILL, macho::S_GB_ZEROFILL, macho::S_THREAD_LOCAL_ZEROFILL}) {
    EXPECT_TRUE((macho::Section{{}, {}, 0, 0, 0, type | 0x80000000}).isZeroFilled()) << type;
  }
  EXPECT_FALSE((macho::Section{{}, {}, 0, 0, 0, 0x80000000}).isZeroFilled());
}

}  // namespace

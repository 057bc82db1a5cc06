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
    const std::string bytes = poked(MachOImage(7, 3).bytes(), 0, magic);
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

TEST(LoadCommandsTest, SegmentsAndSectionsOfBothWidthsAreRead) {
  for (MachOImage image : {MachOImage::arm64(), MachOImage::armv7()}) {
    const bool isWide = image.cpuType() == macho::CPU_TYPE_ARM64;
    const std::uint32_t cmd = isWide ? macho::LC_SEGMENT_64 : macho::LC_SEGMENT;
    const std::string bytes =
        image
            .segment("__A_16_LETTERS__", 0x4000, 0x100,
                     {{"__first", 1, 0, 0}, {"__second", 2, 4, 0x40, macho::S_ZEROFILL}})
            .bytes();
    const Bytes command = bytesOf(bytes).subspan(isWide ? 32 : 28);
    const auto segment = macho::segmentOf(command);
    ASSERT_TRUE(segment);
    EXPECT_EQ(macho::textOf(segment->name), "__A_16_LETTERS__");
    EXPECT_EQ(segment->memorySize, 0x200U);
    EXPECT_EQ(segment->fileOffset, 0x4000U);
    EXPECT_EQ(segment->fileSize, 0x100U);
    EXPECT_EQ(segment->sectionCount, 2U);
    EXPECT_EQ(command.size(), macho::segmentSize(cmd) + 2 * macho::sectionSize(cmd));
    EXPECT_FALSE(macho::segmentOf(command.first(macho::segmentSize(cmd) - 1)));
    const auto section = macho::sectionOf(command, 1);
    ASSERT_TRUE(section);
    EXPECT_EQ(macho::textOf(section->name), "__second");
    EXPECT_EQ(macho::textOf(section->segmentName), "__A_16_LETTERS__");
    EXPECT_EQ(section->address, 2U);
    EXPECT_EQ(section->size, 4U);
    EXPECT_EQ(section->offset, 0x40U);
    EXPECT_TRUE(section->isZeroFilled());
    EXPECT_FALSE(macho::sectionOf(command, 0)->isZeroFilled());
    EXPECT_FALSE(macho::sectionOf(command, 2)) << "beyond the bytes";
  }
  for (const auto type : {macho::S_GB_ZEROFILL, macho::S_THREAD_LOCAL_ZEROFILL}) {
    EXPECT_TRUE((macho::Section{{}, {}, 0, 0, 0, type | 0x80000000}).isZeroFilled()) << type;
  }
  EXPECT_FALSE(macho::segmentOf(bytesOf(std::string(100, '\0')))) << "another command";
}

}  // namespace

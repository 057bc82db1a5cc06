#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "macho/Hashing.h"
#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using test::MachOImage;

class MachOReaderTest : public testing::Test {
 protected:
  ~MachOReaderTest() override { macho::QVTMachOFileDestroy(&file_); }

  std::vector<macho::QVTMachOSlice> slicesOf(const std::string& bytes) {
    macho::QVTMachOFileDestroy(&file_);
    EXPECT_TRUE(macho::QVTMachOFileInitWithPath(&file_, folder_.write("file", bytes).c_str()));
    std::vector<macho::QVTMachOSlice> slices;
    macho::QVTMachOFileEnumerateSlices(&file_,
                                       [&](const auto* slice) { slices.push_back(*slice); });
    return slices;
  }

  test::TemporaryFolder folder_;
  macho::QVTMachOFile file_;
};

std::vector<std::string> namesOf(const std::vector<macho::QVTMachOSlice>& slices) {
  std::vector<std::string> names;
  for (const auto& slice : slices) {
    names.emplace_back(macho::QVTMachOSliceGetArchitectureName(&slice));
  }
  return names;
}

TEST_F(MachOReaderTest, OpensRegularFilesOfSixteenBytesOnly) {
  const auto pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::filesystem::path& refused :
       {folder_.path(), folder_ / "missing", folder_.write("short", std::string(15, 'x')), pipe}) {
    SCOPED_TRACE(refused);
    macho::QVTMachOFile file;
    EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file, refused.c_str()));
    macho::QVTMachOFileDestroy(&file);
  }
  EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file_, nullptr));
  const auto slices = slicesOf("sixteen bytes, !");
  EXPECT_EQ(namesOf(slices), std::vector<std::string>{"unknown"});
  int commands = 0;
  macho::QVTMachOSliceEnumerateLoadCommands(&slices[0], [&](auto, auto, auto) { ++commands; });
  EXPECT_EQ(commands, 0);
}

TEST_F(MachOReaderTest, DestroyingAFailedRecordClosesNobodysDescriptor) {
  macho::QVTMachOFile file;
  EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file, folder_.write("short", "x").c_str()));
  const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  macho::QVTMachOFileDestroy(&file);
  macho::QVTMachOFileDestroy(&file);
  EXPECT_EQ(::close(other), 0);
}

TEST_F(MachOReaderTest, TypesOfUniversalSlicesAreThoseOfTheirTable) {
  const std::string armv7 = MachOImage::armv7().bytes();
  const std::string bytes = test::universalFile({{macho::CPU_TYPE_ARM, 11, armv7},
                                                 {macho::CPU_TYPE_ARM64, 0, armv7},
                                                 {macho::CPU_TYPE_ARM, 11, armv7}});
  const auto slices = slicesOf(bytes);
  EXPECT_EQ(namesOf(slices), (std::vector<std::string>{"armv7s", "arm64", "armv7s"}));
  const auto last = macho::QVTMachOFileSliceWithArchitectureName(&file_, "armv7s");
  EXPECT_EQ(last.startAddress, slices[2].startAddress);
  EXPECT_FALSE(macho::QVTMachOFileSliceWithArchitectureName(&file_, "armv7k").startAddress);

  std::string otherOrder = bytes;
  test::poke(otherOrder, 0, macho::FAT_MAGIC);
  EXPECT_EQ(namesOf(slicesOf(otherOrder)), namesOf(slicesOf(bytes)));
  EXPECT_TRUE(slicesOf(test::universalFile({}) + std::string(8, '\0')).empty());
}

TEST_F(MachOReaderTest, NamesArchitecturesWithoutTheirCapabilities) {
  const struct {
    std::int32_t type;
    std::uint32_t subtype;
    const char* name;
  } cases[] = {{12, 11, "armv7s"},
               {12, 12, "armv7k"},
               {12, 9, "armv7"},
               {0x0100000c, 0, "arm64"},
               {0x0100000c, 1, "arm64v8"},
               {0x0100000c, 0x80000002, "arm64e"},
               {0x0200000c, 1, "arm64_32"},
               {0x01000007, 0x80000003, "x86_64"},
               {7, 3, "i386"},
               {0x0100000c, 77, "unknown"},
               {-1, 0, "unknown"}};
  for (const auto& c : cases) {
    const macho::QVTMachOSlice slice{nullptr, c.type, static_cast<std::int32_t>(c.subtype)};
    EXPECT_STREQ(macho::QVTMachOSliceGetArchitectureName(&slice), c.name) << c.type;
  }
}

TEST_F(MachOReaderTest, HeadersOfTheOtherByteOrderAreReadAsTheyStand) {
  const auto slices =
      slicesOf(MachOImage::armv7().magic(macho::MH_CIGAM).uuid(std::string(32, 'a')).bytes());
  EXPECT_EQ(namesOf(slices), std::vector<std::string>{"armv7"});
  const void* first = nullptr;
  std::uint32_t count = 0;
  macho::QVTMachOSlice slice = slices[0];
  macho::QVTMachOHeaderValues(&slice, &first, &count);
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(
      static_cast<const std::byte*>(first) - static_cast<const std::byte*>(slice.startAddress), 28);
}

TEST_F(MachOReaderTest, FindsSectionsInBothLayouts) {
  for (MachOImage image : {MachOImage::arm64(), MachOImage::armv7()}) {
    image.uuid(std::string(32, '0'))
        .segment("__TEXT", 0x1000, 0x2000,
                 {{"__text", "code", 0x1010}, {"sixteen_letters_", "full", 0x1020}})
        .segment("__DATA", 0x3000, 0x1000, {{"__bss", "", 0x3000, macho::S_ZEROFILL}});
    const auto slices = slicesOf(image.bytes());
    const auto* slice = &slices[0];
    macho::QVTMachOSection section;
    ASSERT_TRUE(macho::QVTMachOSliceInitSectionByName(slice, "__TEXT", "__text", &section));
    EXPECT_EQ(section.address, 0x1010U);
    EXPECT_EQ(section.size, 4U);
    const void* bytes = nullptr;
    ASSERT_TRUE(macho::QVTMachOSliceGetSectionByName(slice, "__TEXT", "sixteen_letters_", &bytes));
    EXPECT_EQ(std::memcmp(bytes, "full", 4), 0);
    EXPECT_TRUE(macho::QVTMachOSliceGetSectionByName(slice, "__DATA", "__bss", &bytes));
    EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(slice, "__DATA", "__text", &bytes));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(slice, "__TEXT", "__text", nullptr));
    EXPECT_FALSE(macho::QVTMachOSliceInitSectionByName(slice, "__TEXT", "__none", &section));
    EXPECT_EQ(section.address + section.size + section.offset, 0U);
  }
}

TEST_F(MachOReaderTest, DecodesSegmentsAndEncryption) {
  for (MachOImage image : {MachOImage::arm64(), MachOImage::armv7()}) {
    const auto slices = slicesOf(
        image.segment("__A_16_LETTERS__", 0x4000, 0x100).encryption(1).encryption(0).bytes());
    std::vector<bool> encrypted;
    macho::QVTMachOSegment segment;
    macho::QVTMachOSliceEnumerateLoadCommands(
        &slices[0], [&](std::uint32_t cmd, std::uint32_t, const void* command) {
          if (cmd == macho::LC_SEGMENT || cmd == macho::LC_SEGMENT_64) {
            segment = macho::QVTMachOGetSegmentCommand(command);
          } else {
            encrypted.push_back(macho::QVTMachOGetEncrypted(command));
            EXPECT_EQ(macho::QVTMachOGetSegmentCommand(command).vmsize, 0U);
          }
        });
    EXPECT_EQ(std::string(segment.segname, 16), "__A_16_LETTERS__");
    EXPECT_EQ(segment.vmaddr, 0x4000U);
    EXPECT_EQ(segment.vmsize, 0x100U);
    EXPECT_EQ(encrypted, (std::vector<bool>{true, false}));
  }
  EXPECT_EQ(macho::QVTMachOGetSegmentCommand(nullptr).vmaddr, 0U);
}

TEST_F(MachOReaderTest, HexEndsInAZeroAndNeedsNoBytes) {
  EXPECT_EQ(macho::QVTHashNSString(std::string("abc\0def", 7)), macho::QVTHashNSString("abc"));
  char hex[7] = "??????";
  macho::QVTSafeHexToString("\x0a\xf1", 2, hex);
  EXPECT_STREQ(hex, "0af1");
  macho::QVTSafeHexToString(nullptr, 2, hex);
  EXPECT_STREQ(hex, "");
}

TEST_F(MachOReaderTest, SlicesOfAFileAreNoImagesOfThisProcess) {
  const auto slices =
      slicesOf(MachOImage::arm64()
                   .segment("__TEXT", 0, 1, {{"__unwind_info", "u"}, {"__eh_frame", "e"}})
                   .bytes());
  std::uintptr_t ehFrame = 1;
  std::uintptr_t unwindInfo = 2;
  macho::QVTMachOSliceGetUnwindInformation(&slices[0], &ehFrame, &unwindInfo);
  EXPECT_EQ(ehFrame, 1U);
  EXPECT_EQ(unwindInfo, 2U);
  EXPECT_EQ(macho::QVTMachOSliceGetExecutablePath(&slices[0]), nullptr);
#ifndef __APPLE__
  const auto current = macho::QVTMachOSliceGetCurrent();
  EXPECT_FALSE(macho::QVTMachOSliceIsValid(&current));
  EXPECT_FALSE(macho::QVTMachOFileInitWithCurrent(&file_));
#endif
}

}  // namespace

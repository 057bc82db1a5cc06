#include "macho/Hashing.h"
#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

class MachOReaderTest : public testing::Test {
 protected:
  ~MachOReaderTest() override { macho::QVTMachOFileDestroy(&file_); }

  std::vector<macho::QVTMachOSlice> slicesOf(const std::string& bytes) {
    macho::QVTMachOFileDestroy(&file_);
    EXPECT_TRUE(macho::QVTMachOFileInitWithPath(
        &file_, folder_.write("file", keepForFuzzing("MachO", bytes)).c_str()));
    std::vector<macho::QVTMachOSlice> slices;
    macho::QVTMachOFileEnumerateSlices(&file_,
                                       [&](const auto* slice) { slices.push_back(*slice); });
    return slices;
  }
  macho::QVTMachOSlice sliceOf(const MachOImage& image) { return slicesOf(image.bytes()).at(0); }

  TemporaryFolder folder_;
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
  const fs::path pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const fs::path& refused :
       {folder_.path(), folder_ / "missing", folder_.write("short", std::string(15, 'x')), pipe}) {
    EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file_, refused.c_str())) << refused;
  }
  EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file_, nullptr));
  const auto slices = slicesOf("sixteen bytes, !");
  EXPECT_THAT(namesOf(slices), ElementsAre("unknown"));
  macho::QVTMachOSliceEnumerateLoadCommands(&slices[0], [](auto, auto, auto) { ADD_FAILURE(); });
}

TEST_F(MachOReaderTest, DestroyingAFailedRecordClosesNobodysDescriptor) {
  EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file_, folder_.write("short", "x").c_str()));
  const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  macho::QVTMachOFileDestroy(&file_);
  macho::QVTMachOFileDestroy(&file_);
  EXPECT_EQ(::close(other), 0);
}

TEST_F(MachOReaderTest, TypesOfUniversalSlicesAreThoseOfTheirTable) {
  const std::string armv7 = MachOImage::armv7().bytes();
  const std::string bytes = universalFile({{macho::CPU_TYPE_ARM, 11, armv7},
                                           {macho::CPU_TYPE_ARM64, 0, armv7},
                                           {macho::CPU_TYPE_ARM, 11, armv7}});
  const auto slices = slicesOf(bytes);
  EXPECT_THAT(namesOf(slices), ElementsAre("armv7s", "arm64", "armv7s"));
  const auto last = macho::QVTMachOFileSliceWithArchitectureName(&file_, "armv7s");
  EXPECT_EQ(last.startAddress, slices[2].startAddress);
  EXPECT_FALSE(macho::QVTMachOFileSliceWithArchitectureName(&file_, "armv7k").startAddress);

  std::string otherOrder = bytes;
  poke(otherOrder, 0, macho::FAT_MAGIC);
  EXPECT_THAT(namesOf(slicesOf(otherOrder)), ElementsAre("armv7s", "arm64", "armv7s"));
  EXPECT_TRUE(slicesOf(universalFile({}) + std::string(8, '\0')).empty());
}

TEST_F(MachOReaderTest, HeadersOfTheOtherByteOrderAreReadAsIs) {
  auto slice = sliceOf(MachOImage::armv7().magic(macho::MH_CIGAM).uuid(std::string(32, 'a')));
  EXPECT_THAT(namesOf({slice}), ElementsAre("armv7"));
  const void* first = nullptr;
  std::uint32_t count = 0;
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
    const auto slice = sliceOf(image);
    macho::QVTMachOSection section;
    ASSERT_TRUE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__text", &section));
    EXPECT_EQ(section.address, 0x1010U);
    EXPECT_EQ(section.size, 4U);
    const void* bytes = nullptr;
    ASSERT_TRUE(macho::QVTMachOSliceGetSectionByName(&slice, "__TEXT", "sixteen_letters_", &bytes));
    EXPECT_EQ(std::string_view(static_cast<const char*>(bytes), 4), "full");
    EXPECT_TRUE(macho::QVTMachOSliceGetSectionByName(&slice, "__DATA", "__bss", &bytes));
    EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(&slice, "__DATA", "__text", &bytes));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(&slice, "__TEXT", "__text", nullptr));
    EXPECT_FALSE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__none", &section));
    EXPECT_EQ(section.address + section.size + section.offset, 0U);
  }
}

TEST_F(MachOReaderTest, SectionsThatRunOverTheEndHaveNoBytes) {
  std::string bytes = MachOImage::arm64().segment("__TEXT", 0, 64, {{"__text", "code"}}).bytes();
  bytes.pop_back();
  const auto slice = slicesOf(bytes).at(0);
  macho::QVTMachOSection section;
  EXPECT_TRUE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__text", &section));
  const void* content = &file_;
  EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(&slice, "__TEXT", "__text", &content));
  EXPECT_EQ(content, nullptr);
}

TEST_F(MachOReaderTest, DecodesSegmentsAndEncryption) {
  const auto slice = sliceOf(
      MachOImage::armv7().segment("__A_16_LETTERS__", 0x4000, 0x100).encryption(1).encryption(0));
  std::vector<macho::QVTMachOSegment> segments;
  std::vector<bool> encrypted;
  macho::QVTMachOSliceEnumerateLoadCommands(&slice, [&](auto, auto, const void* command) {
    segments.push_back(macho::QVTMachOGetSegmentCommand(command));
    encrypted.push_back(macho::QVTMachOGetEncrypted(command));
  });
  ASSERT_EQ(segments.size(), 3U);
  EXPECT_EQ(std::string(segments[0].segname, 16), "__A_16_LETTERS__");
  EXPECT_EQ(segments[0].vmaddr, 0x4000U);
  EXPECT_EQ(segments[0].vmsize, 0x100U);
  EXPECT_EQ(segments[1].vmsize, 0U) << "another command";
  EXPECT_TRUE(encrypted[1]);
  EXPECT_FALSE(encrypted[2]);
}

TEST_F(MachOReaderTest, HexEndsInAZeroAndNeedsNoBytes) {
  EXPECT_EQ(macho::QVTHashNSString(std::string("abc\0def", 7)), macho::QVTHashNSString("abc"));
  char hex[7] = "??????";
  macho::QVTSafeHexToString("\x0a\xf1", 2, hex);
  EXPECT_STREQ(hex, "0af1");
  macho::QVTSafeHexToString(nullptr, 2, hex);
  EXPECT_STREQ(hex, "");
}

TEST_F(MachOReaderTest, SlicesOfAFileAreNotImagesOfThisProcess) {
  const auto slice = sliceOf(
      MachOImage::arm64().segment("__TEXT", 0, 1, {{"__unwind_info", "u"}, {"__eh_frame", "e"}}));
  std::uintptr_t ehFrame = 1;
  std::uintptr_t unwindInfo = 2;
  macho::QVTMachOSliceGetUnwindInformation(&slice, &ehFrame, &unwindInfo);
  EXPECT_EQ(ehFrame, 1U);
  EXPECT_EQ(unwindInfo, 2U);
  EXPECT_EQ(macho::QVTMachOSliceGetExecutablePath(&slice), nullptr);
#ifndef __APPLE__
  const auto current = macho::QVTMachOSliceGetCurrent();
  EXPECT_FALSE(macho::QVTMachOSliceIsValid(&current));
  EXPECT_FALSE(macho::QVTMachOFileInitWithCurrent(&file_));
#endif
}

}  // namespace

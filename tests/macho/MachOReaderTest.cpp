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
       {folder_ / "missing", folder_.write("short", "fifteen bytes !"), pipe}) {
    EXPECT_FALSE(macho::QVTMachOFileInitWithPath(&file_, refused.c_str())) << refused;
  }
  // Destroying what could not be opened closes nobody's descriptor.
  const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  macho::QVTMachOFileDestroy(&file_);
  EXPECT_EQ(::close(other), 0);
  const auto slices = slicesOf("sixteen bytes, !");
  EXPECT_THAT(namesOf(slices), ElementsAre("unknown"));
  macho::QVTMachOSliceEnumerateLoadCommands(&slices[0], [](auto, auto, auto) { ADD_FAILURE(); });
}

TEST_F(MachOReaderTest, TypesOfUniversalSlicesAreThoseOfTheirTable) {
  const std::string image = machO({}, kARMv7);
  // Either subtype has the name.
  constexpr Processor kARM6432{0x0200000c, 0};
  constexpr Processor kARM6432v8{0x0200000c, 1};
  const std::string bytes =
      universalFile({{image, kARM6432}, {image, kARM64}, {image, kARM6432v8}});
  for (const std::string& order : {bytes, poked(bytes, 0, macho::FAT_MAGIC)}) {
    const auto slices = slicesOf(order);
    EXPECT_THAT(namesOf(slices), ElementsAre("arm64_32", "arm64", "arm64_32"));
    const auto last = macho::QVTMachOFileSliceWithArchitectureName(&file_, "arm64_32");
    EXPECT_EQ(last.startAddress, slices[2].startAddress);
  }
  EXPECT_FALSE(macho::QVTMachOFileSliceWithArchitectureName(&file_, "armv7k").startAddress);
  EXPECT_TRUE(slicesOf(universalFile({}) + std::string(8, '\0')).empty());
}

TEST_F(MachOReaderTest, HeadersOfTheOtherByteOrderAreReadAsIs) {
  for (const auto& [processor, magic, size] :
       {std::tuple{kARM64, macho::MH_CIGAM_64, 32}, std::tuple{kARMv7, macho::MH_CIGAM, 28}}) {
    auto slice = slicesOf(poked(machO({dylibCommand("/a")}, processor), 0, magic)).at(0);
    EXPECT_EQ(slice.cputype, processor.type);
    const void* first = nullptr;
    std::uint32_t count = 0;
    macho::QVTMachOHeaderValues(&slice, &first, &count);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(first, static_cast<const std::byte*>(slice.startAddress) + size);
  }
}

TEST_F(MachOReaderTest, ReadsSegmentsAndSectionsOfBothLayouts) {
  const std::vector<MachOSection> text = {{"__text", 0x1010, 4, 0x400},
                                          {"sixteen_letters_", 0x1020, 4, 0x404}};
  const std::vector<MachOSection> data = {
      {"__bss", 0, 99, 0x404, macho::S_ZEROFILL},
      {"__common", 0, 99, 0x404, macho::S_GB_ZEROFILL},
      {"__thread_bss", 0, 99, 0x404, macho::S_THREAD_LOCAL_ZEROFILL | 0x80000000},
      {"__over", 0, 5, 0x404, 0x80000000}};
  for (const Processor processor : {kARM64, kARMv7}) {
    const bool isWide = processor.type == kARM64.type;
    std::string file = machO({segmentCommand("__TEXT", 0x4000, 0x100, text, isWide),
                              segmentCommand("__DATA", 0, 0, data, isWide),
                              command(macho::LC_ENCRYPTION_INFO, {0, 0, 1}),
                              command(macho::LC_ENCRYPTION_INFO, {0, 0, 0})},
                             processor);
    file.resize(0x400);
    const auto slice = slicesOf(file + "codefull").at(0);

    macho::QVTMachOSection section;
    ASSERT_TRUE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__text", &section));
    EXPECT_EQ(section.address, 0x1010U);
    EXPECT_EQ(section.size, 4U);
    EXPECT_FALSE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__none", &section));
    EXPECT_EQ(section.address + section.size + section.offset, 0U);
    const void* bytes = nullptr;
    const auto find = [&](const char* segment, const char* name) {
      return macho::QVTMachOSliceGetSectionByName(&slice, segment, name, &bytes);
    };
    ASSERT_TRUE(find("__TEXT", "sixteen_letters_"));
    EXPECT_EQ(std::string_view(static_cast<const char*>(bytes), 4), "full");
    for (const char* const name : {"__bss", "__common", "__thread_bss"}) {
      EXPECT_TRUE(find("__DATA", name)) << name;
    }
    EXPECT_FALSE(find("__DATA", "__over")) << "it ends after the file";
    EXPECT_FALSE(find("__DATA", "__text"));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(&slice, "__TEXT", "__text", nullptr));

    std::vector<std::tuple<std::string, std::uint64_t, std::uint64_t>> segments;
    std::vector<bool> encrypted;
    macho::QVTMachOSliceEnumerateLoadCommands(&slice, [&](auto, auto, const void* command) {
      const auto [name, address, size] = macho::QVTMachOGetSegmentCommand(command);
      segments.emplace_back(name, address, size);
      encrypted.push_back(macho::QVTMachOGetEncrypted(command));
    });
    EXPECT_THAT(segments, ElementsAre(std::tuple("__TEXT", 0x14000, 0x200), testing::_,
                                      std::tuple("", 0, 0), std::tuple("", 0, 0)));
    EXPECT_TRUE(encrypted.at(2));
    EXPECT_FALSE(encrypted.at(3));

    // A file is not an image of this process.
    std::uintptr_t address = 1;
    macho::QVTMachOSliceGetUnwindInformation(&slice, &address, &address);
    EXPECT_EQ(address, 1U);
    EXPECT_EQ(macho::QVTMachOSliceGetExecutablePath(&slice), nullptr);
  }
#ifndef __APPLE__
  EXPECT_FALSE(macho::QVTMachOFileInitWithCurrent(&file_));
#endif
}

TEST_F(MachOReaderTest, HexEndsInAZeroAndNeedsNoBytes) {
  EXPECT_EQ(macho::QVTHashNSString(std::string("abc\0def", 7)), macho::QVTHashNSString("abc"));
  char hex[7] = "??????";
  macho::QVTSafeHexToString("\x0a\xf1", 2, hex);
  EXPECT_STREQ(hex, "0af1");
  macho::QVTSafeHexToString(nullptr, 2, hex);
  EXPECT_STREQ(hex, "");
}

}  // namespace

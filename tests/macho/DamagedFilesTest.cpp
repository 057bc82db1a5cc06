// Files that lie about themselves. A read outside the mapping would end the program.
#include <cstring>
#include <random>

#include <gtest/gtest.h>
#include <unistd.h>

#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using test::FatSlice;
using test::MachOImage;
using test::word;

constexpr char kUUID[] = "00112233445566778899aabbccddeeff";

/// Filled up with zeros so that the file's end is the end of a page, with nothing mapped behind it.
std::string toPageEnd(const std::string& bytes) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return std::string((page - bytes.size() % page) % page, '\0') + bytes;
}

/// A universal file whose single image ends with the page.
std::string atPageEnd(const std::string& image) {
  std::string bytes = toPageEnd(image);
  if (bytes.size() < image.size() + 28) bytes.insert(0, 4096, '\0');
  const std::string header = test::universalFile(
      {{macho::CPU_TYPE_ARM64, 0, "", static_cast<std::uint32_t>(bytes.size() - image.size())}});
  return bytes.replace(0, 28, header.substr(0, 28));
}

/// Everything that the library can read of a slice.
void readAll(const macho::QVTMachOSlice* slice, std::size_t& commands) {
  std::size_t text = 0;
  macho::QVTMachOSliceEnumerateLoadCommands(
      slice, [&](std::uint32_t, std::uint32_t, const void* command) {
        ++commands;
        if (const auto* uuid = macho::QVTMachOGetUUID(command)) macho::QVTMachONormalizeUUID(uuid);
        macho::QVTMachOGetEncrypted(command);
        macho::QVTMachOGetMinimumOSVersion(command);
        macho::QVTMachOGetLinkedSDKVersion(command);
        macho::QVTMachOGetSegmentCommand(command);
        const char* const path = commands > 1000 ? nullptr : macho::QVTMachOGetDylibPath(command);
        if (path) text += std::strlen(path);
      });
  const void* bytes = nullptr;
  for (const char* section : {"__text", "__data", "__eh_frame"}) {
    macho::QVTMachOSliceGetSectionByName(slice, "__TEXT", section, &bytes);
  }
  EXPECT_LE(text, 100'000'000U);
}

std::size_t commandsIn(const std::filesystem::path& path) {
  macho::QVTMachOFile file;
  EXPECT_TRUE(macho::QVTMachOFileInitWithPath(&file, path.c_str()));
  std::size_t commands = 0;
  macho::QVTMachOFileEnumerateSlices(&file, [&](const auto* slice) { readAll(slice, commands); });
  macho::QVTMachOFileDestroy(&file);
  return commands;
}

struct Damaged {
  const char* name;
  std::string bytes;
  std::size_t slices;
  std::size_t commands;
  std::optional<std::string> uuid = std::nullopt;
  std::size_t dylibs = 0;
};

std::vector<Damaged> damagedFiles() {
  const auto arm64 = [] { return MachOImage::arm64(); };
  const std::uint32_t uuidCmd = macho::LC_UUID;
  const std::uint32_t dylibCmd = macho::LC_LOAD_DYLIB;
  const std::string dylib = word(dylibCmd) + word(24);
  std::string cutUUID = arm64().uuid(kUUID).bytes();
  cutUUID.resize(cutUUID.size() - 1);
  return {
      {"offset behind the file", test::universalFile({{macho::CPU_TYPE_ARM64, 0, "", 0xfffffff0}}),
       1, 0},
      {"offset at the file's very end", test::universalFile({{macho::CPU_TYPE_ARM64, 0, "", 28}}),
       1, 0},
      {"offset back to the universal header",
       test::universalFile({{macho::CPU_TYPE_ARM64, 0, "", 0}}), 1, 0},
      {"more slices than the file holds",
       test::universalFile({FatSlice::of(arm64())}, 4, 0xffffffff), 2, 0},
      {"header cut off", atPageEnd(arm64().bytes().substr(0, 31)), 1, 0},
      {"header without its count", atPageEnd(arm64().bytes().substr(0, 16)), 1, 0},
      {"magic cut off", atPageEnd("\xcf\xfa\xed"), 1, 0},
      {"no commands where some are claimed", atPageEnd(arm64().commandCount(9).bytes()), 1, 0},
      {"command cut within its first words",
       atPageEnd(arm64().uuid(kUUID).command(word(uuidCmd)).bytes()), 1, 1, kUUID},
      {"command that runs over the end",
       atPageEnd(arm64().bareCommand(7, 0x7fffffff).uuid(kUUID).bytes()), 1, 1},
      {"command size that would wrap around",
       atPageEnd(arm64().bareCommand(7, 0xffffffff).uuid(kUUID).bytes()), 1, 1},
      {"UUID cut off", atPageEnd(cutUUID), 1, 1},
      {"size 0 repeats the command as often as is claimed",
       arm64().dylib("/a").bytes() + word(dylibCmd) + word(0) + word(8) + word('a') +
           std::string(8, '\0'),
       1, 1, std::nullopt, 1},
      {"size 0 to the end of time",
       atPageEnd(arm64().bareCommand(7, 0).commandCount(0xffffffff).bytes()), 1, 65536},
      {"library name without an end",
       atPageEnd(arm64().command(dylib + word(24) + std::string(12, 'x') + "/lib").bytes()), 1, 1},
      {"library name behind the end",
       atPageEnd(arm64().command(dylib + word(0xfffffff0) + std::string(12, 'x')).bytes()), 1, 1},
      {"library command without a name", atPageEnd(arm64().bareCommand(dylibCmd, 8).bytes()), 1, 1},
      {"more sections than the file holds",
       atPageEnd(arm64()
                     .command(word(macho::LC_SEGMENT_64) + word(72) + "__TEXT" +
                              std::string(50, '\0') + word(0xffffffff) + word(0))
                     .bytes()),
       1, 1},
  };
}

TEST(DamagedFilesTest, AreReadAsFarAsTheyGo) {
  const test::TemporaryFolder folder;
  for (const Damaged& c : damagedFiles()) {
    SCOPED_TRACE(c.name);
    const auto path = folder.write("damaged", c.bytes);
    EXPECT_EQ(commandsIn(path), c.commands);
    const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
    ASSERT_TRUE(binary);
    ASSERT_EQ(binary->slices().size(), c.slices);
    EXPECT_EQ(binary->slices()[0]->uuid(), c.uuid);
    EXPECT_EQ(binary->slices()[0]->linkedDylibs().size(), c.dylibs);
  }
}

TEST(DamagedFilesTest, SectionsThatRunOverTheEndHaveNoBytes) {
  const test::TemporaryFolder folder;
  const std::string whole =
      MachOImage::arm64().segment("__TEXT", 0, 64, {{"__text", "code"}}).bytes();
  macho::QVTMachOFile file;
  ASSERT_TRUE(macho::QVTMachOFileInitWithPath(
      &file, folder.write("cut", whole.substr(0, whole.size() - 1)).c_str()));
  const auto slice = macho::QVTMachOFileSliceWithArchitectureName(&file, "arm64");
  macho::QVTMachOSection section;
  EXPECT_TRUE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__text", &section));
  const void* bytes = &file;
  EXPECT_FALSE(macho::QVTMachOSliceGetSectionByName(&slice, "__TEXT", "__text", &bytes));
  EXPECT_EQ(bytes, nullptr);
  macho::QVTMachOFileDestroy(&file);
}

/// 50,000 slices that share one image with as many load commands: without a limit for all slices
/// together this takes 2.5 thousand million steps, and an endless name is read as often.
TEST(DamagedFilesTest, OverlappingSlicesCostNoMoreThanTheFileIsLong) {
  const test::TemporaryFolder folder;
  constexpr std::uint32_t kMany = 50'000;
  MachOImage image = MachOImage::arm64();
  for (std::uint32_t i = 0; i < kMany; ++i) {
    image.command(word(macho::LC_LOAD_DYLIB) + word(12) + word(12));
  }
  const std::string shared = image.bytes() + std::string(100'000, 'x');
  const auto offset = static_cast<std::uint32_t>(8 + 20 * kMany);
  std::vector<FatSlice> slices(kMany, {macho::CPU_TYPE_ARM64, 0, "", offset});
  const auto path = folder.write("overlap", test::universalFile(slices, 0) + shared + '\0');
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
  ASSERT_EQ(binary->slices().size(), kMany);
  std::size_t kept = 0;
  for (const auto& slice : binary->slices()) {
    for (const auto& dylib : slice->linkedDylibs()) kept += dylib.size();
  }
  EXPECT_LE(kept, std::size_t{8} << 20);
}

TEST(DamagedFilesTest, FlippedBytesNeverCrash) {
  const test::TemporaryFolder folder;
  const std::string whole = test::universalFile(
      {FatSlice::of(MachOImage::arm64()
                        .uuid(kUUID)
                        .segment("__TEXT", 0, 64, {{"__text", "code"}, {"__data", "data"}})
                        .versionMin(macho::LC_VERSION_MIN_IPHONEOS, 0x90000, 0xc0100)
                        .dylib("/usr/lib/libSystem.B.dylib")),
       FatSlice::of(MachOImage::armv7().encryption(1).uuid(kUUID).segment("__TEXT", 0, 64, {}))});
  std::mt19937 random(20150301);  // NOLINT: the same flips in every run
  for (int round = 0; round < 1500; ++round) {
    std::string bytes = whole;
    for (int i = 0; i <= round % 4; ++i) {
      bytes[random() % bytes.size()] = static_cast<char>(random());
    }
    if (round % 3 == 0) bytes.resize(16 + random() % bytes.size());
    const auto path =
        folder.write("flipped", toPageEnd(bytes).substr(toPageEnd(bytes).size() - bytes.size()));
    commandsIn(path);
    const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
    ASSERT_TRUE(binary);
  }
}

}  // namespace

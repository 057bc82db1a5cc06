// Files that lie about themselves. A read outside the mapping would end the program.
#include <cstring>

#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

constexpr char kUUID[] = "00112233445566778899aabbccddeeff";

/// A universal file whose single image ends with the file's last page, with nothing mapped after
/// it.
std::string atPageEnd(const std::string& image) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t size = (image.size() + 28 + page - 1) / page * page;
  const auto offset = static_cast<std::uint32_t>(size - image.size());
  std::string bytes = universalFile({{macho::CPU_TYPE_ARM64, 0, "", offset}});
  bytes.resize(offset);
  return bytes + image;
}
std::string atPageEnd(const MachOImage& image) { return atPageEnd(image.bytes()); }

/// A universal file that says its only image begins there.
std::string imageAt(std::uint32_t offset) {
  return universalFile({{macho::CPU_TYPE_ARM64, 0, "", offset}});
}

/// Everything that the library can read of a slice; returns the number of its commands.
std::size_t readAll(const macho::QVTMachOSlice* slice) {
  std::size_t commands = 0;
  std::size_t text = 0;
  macho::QVTMachOSliceEnumerateLoadCommands(slice, [&](auto, auto, const void* command) {
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
  macho::QVTMachOSliceGetSectionByName(slice, "__TEXT", "__text", &bytes);
  EXPECT_LE(text, 100'000'000U);
  return commands;
}

struct Damaged {
  const char* name;
  std::string bytes;
  std::size_t commands;
  std::optional<std::string> uuid = std::nullopt;
  std::size_t dylibs = 0;
  std::size_t slices = 1;
};

std::vector<Damaged> damagedFiles() {
  const MachOImage image = MachOImage::arm64();
  const auto with = [&](const std::string& command) { return MachOImage(image).command(command); };
  const MachOImage withUUID = MachOImage(image).uuid(kUUID);
  const auto before = [&](std::uint32_t size) {
    return atPageEnd(MachOImage(image).bareCommand(7, size).uuid(kUUID));
  };
  const std::string dylib = word(macho::LC_LOAD_DYLIB) + word(24);
  const std::string cutUUID = withUUID.bytes().substr(0, withUUID.bytes().size() - 1);
  return {
      {"offset beyond the file", imageAt(0xfffffff0), 0},
      {"offset at the file's very end", imageAt(28), 0},
      {"offset back to the universal header", imageAt(0), 0},
      {.name = "more slices than the file holds",
       .bytes = universalFile({FatSlice::of(image)}, 4, 0xffffffff),
       .commands = 0,
       .slices = 2},
      {"header truncated", atPageEnd(image.bytes().substr(0, 31)), 0},
      {"header without its count", atPageEnd(image.bytes().substr(0, 16)), 0},
      {"magic truncated", atPageEnd("\xcf\xfa\xed"), 0},
      {"no commands where some are claimed", atPageEnd(MachOImage(image).commandCount(9)), 0},
      {"command truncated within its first words",
       atPageEnd(MachOImage(withUUID).command(word(macho::LC_UUID))), 1, kUUID},
      {"command that runs over the end", before(0x7fffffff), 1},
      {"command size that would wrap around", before(0xffffffff), 1},
      {"UUID truncated", atPageEnd(cutUUID), 1},
      {"size 0 repeats the command as often as is claimed",
       MachOImage(image).dylib("/a").bytes() + word(macho::LC_LOAD_DYLIB) + word(0) + word(8) +
           word('a') + std::string(8, '\0'),
       1, std::nullopt, 1},
      {"size 0 to the end of time",
       atPageEnd(MachOImage(image).bareCommand(7, 0).commandCount(0xffffffff)), 65536},
      {"library name without an end",
       atPageEnd(with(dylib + word(24) + std::string(12, 'x') + "/lib")), 1},
      {"library name beyond the end",
       atPageEnd(with(dylib + word(0xfffffff0) + std::string(12, 'x'))), 1},
      {"library command without a name",
       atPageEnd(MachOImage(image).bareCommand(macho::LC_LOAD_DYLIB, 8)), 1},
      {"more sections than the file holds",
       atPageEnd(with(word(macho::LC_SEGMENT_64) + word(72) + "__TEXT" + std::string(50, '\0') +
                      word(0xffffffff) + word(0))),
       1},
  };
}

TEST(DamagedFilesTest, AreReadAsFarAsTheyGo) {
  const TemporaryFolder folder;
  for (const Damaged& row : damagedFiles()) {
    SCOPED_TRACE(row.name);
    const fs::path path = folder.write("damaged", keepForFuzzing("MachO", row.bytes));
    macho::QVTMachOFile file;
    ASSERT_TRUE(macho::QVTMachOFileInitWithPath(&file, path.c_str()));
    std::size_t commands = 0;
    macho::QVTMachOFileEnumerateSlices(&file,
                                       [&](const auto* slice) { commands += readAll(slice); });
    macho::QVTMachOFileDestroy(&file);
    EXPECT_EQ(commands, row.commands);
    const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
    ASSERT_TRUE(binary);
    ASSERT_EQ(binary->slices().size(), row.slices);
    EXPECT_EQ(binary->slices()[0]->uuid(), row.uuid);
    EXPECT_EQ(binary->slices()[0]->linkedDylibs().size(), row.dylibs);
  }
}

/// 50,000 slices that share one image with as many load commands: without a limit for all slices
/// together this takes 2.5 thousand million steps, and an endless name is read as often.
TEST(DamagedFilesTest, OverlappingSlicesCostNoMoreThanTheFileIsLong) {
  const TemporaryFolder folder;
  constexpr std::uint32_t kMany = 50'000;
  MachOImage image = MachOImage::arm64();
  for (std::uint32_t i = 0; i < kMany; ++i) {
    image.command(word(macho::LC_LOAD_DYLIB) + word(12) + word(12));
  }
  const std::string shared = image.bytes() + std::string(100'000, 'x') + '\0';
  const std::vector<FatSlice> slices(kMany, {macho::CPU_TYPE_ARM64, 0, "", 8 + 20 * kMany});
  const auto path = folder.write("overlap", universalFile(slices, 0) + shared);
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
  ASSERT_EQ(binary->slices().size(), kMany);
  std::size_t kept = 0;
  for (const auto& slice : binary->slices()) {
    for (const auto& dylib : slice->linkedDylibs()) kept += dylib.size();
  }
  EXPECT_LE(kept, std::size_t{8} << 20);
}

}  // namespace

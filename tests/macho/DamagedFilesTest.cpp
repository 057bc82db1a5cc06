// Files that lie about themselves. A read outside the mapping would end the program.
#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

constexpr char kUUID[] = "00112233445566778899aabbccddeeff";

/// A universal file that says its only image begins there.
std::string imageAt(std::uint32_t offset) { return universalFile({{"", kARM64, offset}}); }

/// The image ends with the file's last page, and nothing is mapped after it.
std::string atPageEnd(const std::string& image) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t offset = (image.size() + 28 + page - 1) / page * page - image.size();
  std::string bytes = imageAt(static_cast<std::uint32_t>(offset));
  bytes.resize(offset);
  return bytes + image;
}

/// Reads what `QVTMachOBinary` does not; returns the number of commands.
std::size_t readAll(const macho::QVTMachOSlice* slice) {
  std::size_t commands = 0;
  macho::QVTMachOSliceEnumerateLoadCommands(slice, [&](auto, auto, const void* command) {
    ++commands;
    macho::QVTMachOGetEncrypted(command);
    macho::QVTMachOGetSegmentCommand(command);
    macho::QVTMachOGetDylibPath(command);
  });
  const void* bytes = nullptr;
  macho::QVTMachOSliceGetSectionByName(slice, "__TEXT", "__text", &bytes);
  return commands;
}

TEST(DamagedFilesTest, AreReadAsFarAsTheyGo) {
  constexpr std::uint32_t kEndless = 0xffffffff;
  constexpr std::size_t kCommandCount = 16;
  const std::string empty = machO({});
  const std::string uuid = uuidCommand(kUUID);
  const auto beforeUUID = [&](std::uint32_t size) { return machO({words({7, size}), uuid}); };
  const auto dylibAt = [](std::uint32_t name, const std::string& text) {
    return machO({words({macho::LC_LOAD_DYLIB, 24, name}) + std::string(12, 'x') + text});
  };
  struct Row {
    const char* name;
    std::string bytes;
    std::size_t commands;
    std::optional<std::string> uuid = std::nullopt;
    std::size_t dylibs = 0;
  };
  const TemporaryFolder folder;
  for (const Row& row : {
           Row{"offset beyond the file", imageAt(0xfffffff0), 0},
           Row{"offset at the file's very end", imageAt(28), 0},
           Row{"offset back to the universal header", imageAt(0), 0},
           Row{"more slices than fit", universalFile({{empty}}, 4, kEndless), 0},
           Row{"header truncated", atPageEnd(empty.substr(0, 31)), 0},
           Row{"no commands", atPageEnd(poked(empty, kCommandCount, 9)), 0},
           Row{"command truncated", atPageEnd(machO({uuid, words({macho::LC_UUID})})), 1, kUUID},
           Row{"command that runs over the end", atPageEnd(beforeUUID(0x7fffffff)), 1},
           Row{"command size that would wrap around", atPageEnd(beforeUUID(kEndless)), 1},
           Row{"UUID truncated", atPageEnd(machO({uuid.substr(0, 23)})), 1},
           Row{"size 0 repeats the command as often as is claimed",
               machO({dylibCommand("/a")}) + words({macho::LC_LOAD_DYLIB, 0, 8, 'a', 0, 0}), 1,
               std::nullopt, 1},
           Row{"size 0 to the end of time",
               atPageEnd(poked(machO({words({7, 0})}), kCommandCount, kEndless)), 65536},
           Row{"library name without an end", atPageEnd(dylibAt(24, "/lib")), 1},
           Row{"library name beyond the end", atPageEnd(dylibAt(0xfffffff0, "")), 1},
           Row{"library without a name", atPageEnd(machO({words({macho::LC_LOAD_DYLIB, 8})})), 1},
           Row{"more sections than the file holds",
               atPageEnd(poked(machO({segmentCommand("__TEXT", 0, 0)}), 32 + 64, kEndless)), 1},
       }) {
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
    EXPECT_EQ(binary->slices().at(0)->uuid(), row.uuid);
    EXPECT_EQ(binary->slices()[0]->linkedDylibs().size(), row.dylibs);
  }
}

/// 50,000 slices that share one image with as many load commands: without a limit for all slices
/// together this takes 2.5 thousand million steps, and an endless name is read as often.
TEST(DamagedFilesTest, OverlappingSlicesCostNoMoreThanTheFileIsLong) {
  const TemporaryFolder folder;
  constexpr std::uint32_t kMany = 50'000;
  const std::vector dylibs(kMany, command(macho::LC_LOAD_DYLIB, {12}));
  const std::string shared = machO(dylibs) + std::string(100'000, 'x') + '\0';
  const std::vector<FatSlice> slices(kMany, {"", kARM64, 8 + 20 * kMany});
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

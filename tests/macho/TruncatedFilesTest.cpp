// Files that another process truncates while they are read.
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "macho/private/Mappings.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

TEST(TruncatedFilesTest, TheSlicesThatAreLeftAreReadAndTheRestIsEmpty) {
  constexpr char kUUID[] = "00112233445566778899aabbccddeeff";
  constexpr std::uintmax_t kPage = 0x4000;
  const TemporaryFolder folder;
  const fs::path path =
      folder.write("file", universalFile({{machO({}, kARMv7)}, {machO({uuidCommand(kUUID)})}}, 14));
  macho::QVTMachOFile file;
  ASSERT_TRUE(macho::QVTMachOFileInitWithPath(&file, path.c_str()));
  int slices = 0;
  int commands = 0;
  macho::QVTMachOFileEnumerateSlices(&file, [&](const macho::QVTMachOSlice* slice) {
    EXPECT_TRUE(macho::checkMapping(file.mappedFile));
    if (++slices == 2) fs::resize_file(path, kPage);
    macho::QVTMachOSliceEnumerateLoadCommands(slice, [&](auto, auto, auto) { ++commands; });
  });
  EXPECT_EQ(slices, 2);
  EXPECT_EQ(commands, 0);
  const void* const start = file.mappedFile;
  EXPECT_THAT(problemOf(macho::checkMapping(start)), HasSubstr("file was truncated"));
  EXPECT_EQ(macho::mappingSize(start), 2 * kPage + 56);
  macho::QVTMachOFileDestroy(&file);
  // Whatever comes to lie there next is neither blamed for it nor taken for this file.
  EXPECT_TRUE(macho::checkMapping(start));
  EXPECT_EQ(macho::mappingSize(start), 0U);
}

/// Another thread truncates the file as soon as it is mapped, while 100,000 slices are read.
TEST(TruncatedFilesTest, NoBinaryIsMadeOfWhatIsLost) {
  const TemporaryFolder folder;
  const std::vector<FatSlice> slices(100'000, {"", kARM64, 8 + 20 * 100'000});
  const std::string whole = universalFile(slices, 0) + machO({});
  std::string problem;
  // When the binary has been read to its end in time, once more.
  EXPECT_TRUE(eventually([&] {
    const fs::path path = folder.write("code", whole);
    std::atomic<bool> isRead = false;
    std::thread truncating([&] {
      while (!isRead && contentsOf("/proc/self/maps").find(path.string()) == std::string::npos) {
        std::this_thread::yield();
      }
      fs::resize_file(path, 0);
    });
    try {
      QVTMachOBinary::MachOBinaryWithPath(path.string());
    } catch (const foundation::Exception& exception) {
      problem = exception.what();
    }
    isRead = true;
    truncating.join();
    return !problem.empty();
  }));
  EXPECT_THAT(problem, HasSubstr("code was truncated"));
}

}  // namespace

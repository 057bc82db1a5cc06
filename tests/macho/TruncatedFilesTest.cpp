// Files that another process truncates while they are read. A row of bad input has a whole run.
#include "macho/MachOSlice.h"
#include "macho/private/Mappings.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

TEST(TruncatedFilesTest, TheSlicesThatAreLeftAreReadAndTheRestIsEmpty) {
  constexpr std::uintmax_t kPage = 0x4000;
  const TemporaryFolder folder;
  const std::string second = machO({uuidCommand(repeated("00", 16))});
  const fs::path path = folder.write("file", universalFile({{machO({}, kARMv7)}, {second}}, 14));
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

}  // namespace

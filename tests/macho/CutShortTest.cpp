// Files that somebody else cuts short while they are read.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Error.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "macho/private/Mappings.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string twoSlices() {
  auto image = test::MachOImage::arm64();
  image.uuid("00112233445566778899aabbccddeeff");
  return test::universalFile(
      {test::FatSlice::of(test::MachOImage::armv7()), test::FatSlice::of(image)}, 14);
}

TEST(CutShort, TheSlicesThatAreLeftAreReadAndTheRestIsEmpty) {
  const test::TemporaryFolder folder;
  const fs::path path = folder.write("file", twoSlices());
  macho::QVTMachOFile file;
  ASSERT_TRUE(macho::QVTMachOFileInitWithPath(&file, path.c_str()));
  int slices = 0;
  int commands = 0;
  macho::QVTMachOFileEnumerateSlices(&file, [&](const macho::QVTMachOSlice* slice) {
    EXPECT_EQ(macho::checkMapping(file.mappedFile).ok(), true);
    if (++slices == 2) fs::resize_file(path, 0x4000);
    macho::QVTMachOSliceEnumerateLoadCommands(
        slice, [&](std::uint32_t, std::uint32_t, const void*) { ++commands; });
  });
  EXPECT_EQ(slices, 2);
  EXPECT_EQ(commands, 0);
  const auto intact = macho::checkMapping(file.mappedFile);
  ASSERT_FALSE(intact);
  EXPECT_THAT(intact.error().localizedDescription(), HasSubstr("file was truncated"));
  const void* const start = file.mappedFile;
  macho::QVTMachOFileDestroy(&file);
  // Whatever comes to lie there next is neither blamed for it nor taken for this file.
  EXPECT_TRUE(macho::checkMapping(start).ok());
  EXPECT_EQ(macho::mappingSize(start), 0U);
}

/// On a file system without room for the file's hole, every touch of it is such a loss.
TEST(CutShort, ABinaryIsNotMadeOfWhatIsLost) {
  if (test::runCommand({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mounts here";
  const test::TemporaryFolder folder;
  const fs::path mounted = folder / "mounted";
  fs::create_directory(mounted);
  const auto done =
      test::runCommand({"mount", "-t", "tmpfs", "-o", "size=64k", "none", mounted.string()});
  ASSERT_EQ(done.status, 0) << done.output;
  std::string header = twoSlices().substr(0, 0x1000);
  test::poke(header, 8 + 20 + 8, 0x00800000);  // big-endian 0x8000: where the second slice begins
  std::ofstream(mounted / "code", std::ios::binary) << header;
  fs::resize_file(mounted / "code", 1 << 20);
  test::runCommand({"dd", "if=/dev/zero", "of=" + (mounted / "rest").string()});
  try {
    QVTMachOBinary::MachOBinaryWithPath((mounted / "code").string());
    ADD_FAILURE() << "no exception";
  } catch (const foundation::Exception& exception) {
    EXPECT_THAT(exception.what(), HasSubstr("code was truncated"));
  }
  test::runCommand({"umount", mounted.string()});
}

}  // namespace

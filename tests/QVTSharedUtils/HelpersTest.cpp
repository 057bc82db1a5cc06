#include "QVTSharedUtils/FileHelpers.h"
#include "QVTSharedUtils/QVTStrings.h"
#include "tests/support/Test.h"

namespace {

TEST(QVTStrings, HashesEndAtANulAndNamesAreNewEachTime) {
  EXPECT_EQ(QVTStrings::MD5HashForString(std::string_view("abc\0def", 7)),
            "900150983cd24fb0d6963f7d28e17f72");
  const ScopedEnvironment environment("TMPDIR", "/some/where");
  const fs::path zip = QVTStrings::uniqueZipFilePath();
  EXPECT_EQ(zip.parent_path(), "/some/where");
  EXPECT_EQ(zip.extension(), ".zip");
  EXPECT_NE(zip, QVTStrings::uniqueZipFilePath());
  const fs::path gzip = QVTStrings::uniqueGZipFileName();
  EXPECT_EQ(gzip.filename(), "gz");
  EXPECT_NE(gzip.parent_path(), "");
}

TEST(DeleteFile, RemovesOrTellsTheSystemLog) {
  const TemporaryFolder folder;
  folder.write("tree/sub/file", "x");
  EXPECT_TRUE(deleteFile(folder / "tree"));
  EXPECT_THAT(pathsBelow(folder.path()), IsEmpty());
  EXPECT_THAT(
      logOf([&] { EXPECT_FALSE(deleteFile(folder / "tree")); }),
      HasSubstr("] Unable to delete due to error: cannot remove " + (folder / "tree").string()));
}

}  // namespace

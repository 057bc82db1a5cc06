#include <gtest/gtest.h>

#include "QVTSharedUtils/FileHelpers.h"
#include "QVTSharedUtils/QVTStrings.h"
#include "foundation/base/Path.h"
#include "tests/support/TemporaryFolder.h"

namespace {

TEST(QVTStrings, HashesUpToTheFirstNul) {
  const struct {
    std::string text;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {std::string("abc\0def", 7), "900150983cd24fb0d6963f7d28e17f72"},
      {"\xc3\xa4", "8419b71c87a225a2c70b50486fbee545"},
  };
  for (const auto& c : cases) EXPECT_EQ(QVTStrings::MD5HashForString(c.text), c.digest);
}

TEST(QVTStrings, NamesAreNewEachTime) {
  const test::ScopedEnvironment environment("TMPDIR", "/some/where");
  const std::string one = QVTStrings::uniqueZipFilePath();
  const std::string two = QVTStrings::uniqueZipFilePath();
  EXPECT_NE(one, two);
  for (const std::string& path : {one, two}) {
    EXPECT_EQ(foundation::deletingLastPathComponent(path), "/some/where");
    EXPECT_EQ(foundation::pathExtension(path), "zip");
  }
  EXPECT_NE(QVTStrings::uniqueString(), QVTStrings::uniqueString());
  const std::string name = QVTStrings::uniqueGZipFileName();
  EXPECT_EQ(foundation::lastPathComponent(name), "gz");
  EXPECT_NE(foundation::deletingLastPathComponent(name), "");
}

TEST(DeleteFile, RemovesOrTellsTheSystemLog) {
  const test::TemporaryFolder folder;
  folder.write("tree/sub/file", "x");
  EXPECT_TRUE(deleteFile(folder / "tree"));
  EXPECT_FALSE(std::filesystem::exists(folder / "tree"));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(deleteFile(folder / "tree"));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(
      log.find("] Unable to delete due to error: cannot remove " + (folder / "tree").string()),
      log.npos)
      << log;
}

}  // namespace

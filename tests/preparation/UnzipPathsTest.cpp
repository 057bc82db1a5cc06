#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/file/FileManager.h"
#include "preparation/UnzipPaths.h"
#include "tests/preparation/Archives.h"
#include "tests/support/ZipFixture.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

/// An archive with one empty file, which `unzip` takes. `unicode` is the name in an extra field,
/// made for "Payload/raw.app/x" or "Payload/\u00dc.app/x".
std::string archiveWith(const std::string& name, const std::string& host,
                        const std::string& unicode) {
  test::ZipItem item{.name = name, .compressedSize = 0, .uncompressedSize = 0};
  if (host == "old") item.madeBy = 0;
  if (host == "utf8") item.flags = 1 << 11;
  if (!unicode.empty()) {
    const std::uint32_t sum = name == "Payload/raw.app/x" ? 0x7dbc6c9 : 0x77360eeb;
    item.extra = test::zipField(0x7075, "\1" + test::littleEndian(sum, 4) + unicode);
  }
  return test::ZipImage({item}).bytes();
}

TEST(UnzipPaths, AreWhereTheRealUnzipPutsEntries) {
  struct Case {
    const char* name;
    const char* host;
    const char* unicode = "";
    bool isCertain = true;
  };
  for (const Case& c : std::vector<Case>{
           {"Payload/My App.app/x", "unix"},
           {"./Payload//./B.app/../x", "unix"},
           {"../../Payload/B.app/x", "unix"},
           {"Payload/B.app/a\\b", "unix"},
           {"Payload/a;b.app/x;", "unix", "", false},
           {"Payload/B.app;12", "unix", "", false},
           {"Payload/B\r.app/x", "unix", "", false},
           {"Payload/\xff\xfe.app/x", "unix", "", false},
           {"Payload\\B.app\\x", "old", "", false},
           {"Payload/\xc3\x9c.app/x", "unix"},
           {"Payload/\xc3\x9c.app/x", "old", "", false},
           {"Payload/\xc3\x9c\xf0\x9f\x98\x80.app/x", "utf8"},
           {"Payload/raw.app/x", "unix", "Payload/\xc3\x9c\xf0\x9f\x98\x80.app/x"},
           {"Payload/raw.app/x", "unix", "Payload/other.app/x"},
           {"Payload/raw.app/x", "unix", "Payload/\xc3.app/x", false},
           {"Payload/\xc3\x9c.app/x", "utf8", "Payload/other.app/x"},
           {"Payload/\xc3\x9c.app/x", "unix", "Payload/other.app/x"},
           {"Payload/B.app/..", "unix", "", false},
       }) {
    const std::string bytes = archiveWith(c.name, c.host, c.unicode);
    for (const char* const locale : {"C", "C.UTF-8"}) {
      SCOPED_TRACE(std::string(c.name) + " " + c.unicode + " in " + locale);
      const test::TemporaryFolder folder;
      folder.write("a.zip", bytes);
      test::runCommand({"sh", "-c", "LC_ALL=$1 exec unzip -qo \"$2\" -d \"$3\"", "sh", locale,
                        folder / "a.zip", folder / "out"});
      const auto directory = archive::ZipDirectory::read(foundation::bytesOf(bytes));
      ASSERT_TRUE(directory) << directory.error().localizedDescription();
      const UnzipPaths paths(*directory);
      EXPECT_EQ(paths.areCertain(), c.isCertain);
      if (!c.isCertain) continue;
      const auto unpacked = foundation::FileManager::subpathsOfDirectoryAtPath(folder / "out");
      ASSERT_TRUE(unpacked && unpacked->size() >= 3U);
      for (const std::string& path : *unpacked) EXPECT_TRUE(paths.reach(path)) << path;
      EXPECT_TRUE(paths.apps().contains(fs::path(unpacked->at(1)).filename()));
    }
  }
}

TEST(UnzipPaths, ReachTheirFoldersAndNothingElse) {
  const std::string bytes = test::ZipImage({{.name = "Payload/A.app/x"},
                                            {.name = "/Payload/B.app"},
                                            {.name = "Payload/C.APP/x"},
                                            {.name = "Other/D.app/x"},
                                            {.name = "Payload/A.app-more/x"}})
                                .bytes();
  const UnzipPaths paths(*archive::ZipDirectory::read(foundation::bytesOf(bytes)));
  EXPECT_THAT(paths.apps(), ElementsAre("A.app", "B.app"));
  for (const char* const reached : {"Payload", "Payload/A.app", "Payload/A.app/x", "Other"}) {
    EXPECT_TRUE(paths.reach(reached)) << reached;
  }
  for (const char* const other : {"", "Pay", "Payload/A", "Payload/A.app/y", "Payload/A.app/x/y"}) {
    EXPECT_FALSE(paths.reach(other)) << other;
  }
  EXPECT_TRUE(paths.areCertain());
  constexpr std::uint16_t link = 0120777;
  const std::string links = test::ZipImage({{.name = "link", .unixMode = link},
                                            {.name = "folder", .unixMode = link},
                                            {.name = "folder/x"},
                                            {.name = "slash/", .unixMode = link},
                                            {.name = "twice", .unixMode = link},
                                            {.name = "twice"},
                                            {.name = "file"}})
                                .bytes();
  const UnzipPaths linked(*archive::ZipDirectory::read(foundation::bytesOf(links)));
  EXPECT_TRUE(linked.replaceLink("link"));
  for (const char* const other : {"folder", "folder/x", "slash", "twice", "file", "none"}) {
    EXPECT_FALSE(linked.replaceLink(other)) << other;
  }
  const std::string longName =
      test::ZipImage({{.name = "Payload/" + std::string(256, 'n')}}).bytes();
  EXPECT_FALSE(
      UnzipPaths(*archive::ZipDirectory::read(foundation::bytesOf(longName))).areCertain());
}

}  // namespace

#include <chrono>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "preparation/QVTFileSystemUtils.h"
#include "tests/preparation/Archives.h"
#include "tests/support/OtherProcess.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

void writeTool(const test::TemporaryFolder& folder, const char* name, const char* script) {
  fs::permissions(folder.write(name, script), fs::perms::owner_all);
}

TEST(ToolLookUp, FindsShellTools) {
  EXPECT_EQ(QVTFileSystemUtils::pathForShellTool("sh"),
            fs::exists("/usr/bin/sh") ? "/usr/bin/sh" : "/bin/sh");
  EXPECT_EQ(QVTFileSystemUtils::pathForShellTool("no-such-tool-anywhere"), "");
}

TEST(ToolLookUp, AsksXcrunWhereThereIsOne) {
  const test::TemporaryFolder folder;
  const test::ScopedEnvironment path("PATH", folder.path().c_str());
  EXPECT_EQ(QVTFileSystemUtils::pathForXcTool("codesign"), "");
  writeTool(folder, "xcrun", "#!/bin/sh\necho \" $* \"\n");
  EXPECT_EQ(QVTFileSystemUtils::pathForXcTool("codesign"), "--find codesign");
  writeTool(folder, "xcrun", "#!/bin/sh\nexit 72\n");
  EXPECT_EQ(QVTFileSystemUtils::pathForXcTool("codesign"), "");
  writeTool(folder, "xcrun", "#!/bin/sh\nprintf '\\377'\n");
  EXPECT_EQ(QVTFileSystemUtils::pathForXcTool("codesign"), std::nullopt);
}

TEST(AppCopies, GoToAFolderOfTheirOwn) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  folder.write("My App.app/file", "x");
  const std::string storage = temporary.path().string() + "/com.quorvantile.mac/apps";
  EXPECT_EQ(QVTFileSystemUtils::appTemporaryStoragePath(), storage);
  EXPECT_FALSE(fs::exists(storage));
  const std::string source = (folder / "My App.app").string() + "/";
  const auto one = QVTFileSystemUtils::moveAppToTempPath(source);
  const auto two = QVTFileSystemUtils::moveAppToTempPath(source);
  ASSERT_TRUE(one && two);
  EXPECT_NE(*one, *two);
  for (const std::string& copy : {*one, *two}) {
    EXPECT_EQ(fs::path(copy).filename(), "My App.app");
    EXPECT_EQ(fs::path(copy).parent_path().parent_path(), storage);
    EXPECT_EQ(test::contentsOf(copy + "/file"), "x");
  }
  EXPECT_TRUE(fs::exists(source));

  fs::create_symlink("My App.app", folder / "Link.app");
  const auto linked = QVTFileSystemUtils::moveAppToTempPath(folder / "Link.app");
  ASSERT_TRUE(linked);
  EXPECT_FALSE(fs::is_symlink(*linked));
  EXPECT_EQ(test::contentsOf(*linked + "/file"), "x");
}

TEST(AppCopies, FailuresAreTold) {
  std::optional<foundation::Error> error;
  {
    const test::TemporaryDirectoryScope temporary;
    EXPECT_EQ(QVTFileSystemUtils::moveAppToTempPath("/no/such.app", &error), std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->localizedDescription(), HasSubstr("/no/such.app"));
    EXPECT_EQ(QVTFileSystemUtils::moveAppToTempPath("/no/such.app"), std::nullopt);
  }
  const test::TemporaryDirectoryScope temporary;
  std::ofstream(temporary.path() / "com.quorvantile.mac") << "in the way";
  EXPECT_EQ(QVTFileSystemUtils::moveAppToTempPath("/bin", &error), std::nullopt);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("com.quorvantile.mac"));
}

TEST(SmallFileJobs, CopyItemReplacesAnItemOfTheName) {
  const test::TemporaryFolder folder;
  folder.write("App.app/new", "x");
  folder.write("target/App.app/old", "x");
  EXPECT_TRUE(QVTFileSystemUtils::copyItemToDirectory(folder / "App.app", folder / "target"));
  EXPECT_THAT(*foundation::FileManager::contentsOfDirectoryAtPath(folder / "target/App.app"),
              ElementsAre("new"));
  EXPECT_FALSE(QVTFileSystemUtils::copyItemToDirectory(folder / "missing", folder / "target"));
  EXPECT_FALSE(QVTFileSystemUtils::copyItemToDirectory(std::nullopt, folder / "target"));
  EXPECT_FALSE(QVTFileSystemUtils::copyItemToDirectory(folder / "App.app", std::nullopt));
}

TEST(SmallFileJobs, WhatCannotBeRemovedIsNotReplaced) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a folder of somebody else";
  const test::TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms(0755));
  folder.write("App.app/new", "x");
  folder.write("target/App.app/old", "x");
  EXPECT_EQ(test::asUnprivilegedUser([&]() -> std::string {
              const bool copied =
                  QVTFileSystemUtils::copyItemToDirectory(folder / "App.app", folder / "target");
              const bool removed =
                  QVTFileSystemUtils::removeItemAtPathIfPresent(folder / "target/App.app");
              return std::string(copied ? "copied " : "") + (removed ? "removed" : "");
            }),
            "");
  EXPECT_FALSE(fs::exists(folder / "target/App.app/new"));
  EXPECT_TRUE(QVTFileSystemUtils::removeItemAtPathIfPresent(folder / "target/App.app"));
  EXPECT_TRUE(QVTFileSystemUtils::removeItemAtPathIfPresent(folder / "target/App.app"));
}

TEST(SmallFileJobs, ZeroByteFiles) {
  const test::TemporaryFolder folder;
  EXPECT_TRUE(QVTFileSystemUtils::isZeroByteFile(folder.write("empty", "")));
  EXPECT_FALSE(QVTFileSystemUtils::isZeroByteFile(folder.write("full", std::string(1, '\0'))));
  EXPECT_TRUE(QVTFileSystemUtils::isZeroByteFile(folder / "missing"));
  EXPECT_TRUE(QVTFileSystemUtils::isZeroByteFile(folder.path()));
}

TEST(Listings, AppsBySuffix) {
  const test::TemporaryFolder folder;
  for (const char* const name : {"A.app", "B.app", "Foo.APP", "app", "C.app.zip", ".DS_Store"}) {
    folder.write(name, "x");
  }
  EXPECT_THAT(*QVTFileSystemUtils::findPathsToAppsInDirectory(folder.path()),
              UnorderedElementsAre("A.app", "B.app"));
  std::optional<foundation::Error> error;
  EXPECT_EQ(QVTFileSystemUtils::findPathsToAppsInDirectory(folder / "none", &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr((folder / "none").string()));
}

/// Makes the file again until the file system, which keeps times in ticks, says that it is younger.
void writeYounger(const test::TemporaryFolder& folder, const char* name, const char* older) {
  using foundation::FileManager::creationDateOfItemAtPath;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  do {
    fs::remove(folder / name);
    folder.write(name, "x");
    ASSERT_LT(std::chrono::steady_clock::now(), end);
  } while (creationDateOfItemAtPath(folder / name) <= creationDateOfItemAtPath(folder / older));
}

TEST(Listings, OldestFirst) {
  const test::TemporaryFolder folder;
  folder.write("zeta", "x");
  folder.write(".hidden", "x");
  writeYounger(folder, "alpha", "zeta");
  writeYounger(folder, "mid dle", "alpha");
  const auto namesAt = [](const std::string& path) {
    std::vector<std::string> names;
    const auto urls = QVTFileSystemUtils::dateSortedContentsOfPath(path);
    for (const auto& url : urls.value_or(std::vector<foundation::URL>())) {
      EXPECT_TRUE(url.isFileURL());
      names.push_back(foundation::lastPathComponent(url.path()));
    }
    return names;
  };
  EXPECT_THAT(namesAt(folder.path()), ElementsAre("zeta", "alpha", "mid dle"));
  folder.write("with space/file", "x");
  EXPECT_THAT(namesAt(folder.path().string() + "/with%20space"), ElementsAre("file"));
  std::optional<foundation::Error> error;
  for (const std::string& path : {folder.path().string() + "/with space",
                                  folder.path().string() + "/none", std::string("http://a/b")}) {
    error.reset();
    EXPECT_EQ(QVTFileSystemUtils::dateSortedContentsOfPath(path, &error), std::nullopt);
    ASSERT_TRUE(error) << path;
    EXPECT_THAT(error->localizedDescription(), HasSubstr(path));
  }
}

}  // namespace

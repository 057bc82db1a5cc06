#include "foundation/file/FileManager.h"
#include "preparation/QVTFileSystemUtils.h"
#include "tests/preparation/TemporaryDirectory.h"

namespace {

using Utils = QVTFileSystemUtils;

TEST(ToolLookUp, FindsToolsInPathAndThroughXcrun) {
  EXPECT_THAT(Utils::pathForShellTool("sh"), Optional(EndsWith("/bin/sh")));
  EXPECT_EQ(Utils::pathForShellTool("no-such-tool-anywhere"), "");
  const TemporaryFolder folder;
  const ScopedEnvironment path("PATH", folder.path().c_str());
  EXPECT_EQ(Utils::pathForXcTool("codesign"), "") << "no xcrun";
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"echo \" $* \"", "--find codesign"}, {"exit 72", ""}, {"printf '\\377'", std::nullopt}};
  for (const auto& [script, answer] : cases) {
    writeProgram(folder / "xcrun", std::string("#!/bin/sh\n") + script);
    EXPECT_EQ(Utils::pathForXcTool("codesign"), answer) << script;
  }
}

TEST(AppCopies, GoToAFolderOfTheirOwn) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  folder.write("My App.app/file", "x");
  fs::create_symlink("My App.app", folder / "Link.app");
  const std::string storage = temporary / "com.quorvantile.mac/apps";
  EXPECT_EQ(Utils::appTemporaryStoragePath(), storage);
  EXPECT_FALSE(fs::exists(storage));
  std::set<fs::path> folders;
  for (const char* const source : {"My App.app/", "My App.app/", "Link.app"}) {
    const auto copied = Utils::moveAppToTempPath(folder / source);
    ASSERT_TRUE(copied) << source;
    const fs::path copy = *copied;
    EXPECT_EQ(copy.filename(), *source == 'L' ? "Link.app" : "My App.app");
    EXPECT_EQ(copy.parent_path().parent_path(), storage);
    EXPECT_FALSE(fs::is_symlink(copy));
    EXPECT_EQ(contentsOf(copy / "file"), "x");
    folders.insert(copy.parent_path());
  }
  EXPECT_THAT(folders, SizeIs(3));
  EXPECT_TRUE(fs::exists(folder / "My App.app/file"));

  std::optional<Error> error;
  EXPECT_EQ(Utils::moveAppToTempPath("/no/such.app", &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("/no/such.app"));
  EXPECT_EQ(Utils::moveAppToTempPath("/no/such.app"), std::nullopt);
  fs::remove_all(temporary / "com.quorvantile.mac");
  temporary.write("com.quorvantile.mac", "in the way");
  EXPECT_EQ(Utils::moveAppToTempPath("/bin", &error), std::nullopt);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("com.quorvantile.mac"));
}

TEST(SmallFileJobs, CopyItemReplacesAnItemOfTheName) {
  const TemporaryFolder folder;
  folder.write("App.app/new", "x");
  folder.write("target/App.app/old", "x");
  EXPECT_TRUE(Utils::copyItemToDirectory(folder / "App.app", folder / "target"));
  EXPECT_THAT(pathsBelow(folder / "target"), ElementsAre("App.app", "App.app/new"));
  EXPECT_FALSE(Utils::copyItemToDirectory(folder / "missing", folder / "target"));
  EXPECT_FALSE(Utils::copyItemToDirectory(std::nullopt, folder / "target"));
  EXPECT_FALSE(Utils::copyItemToDirectory(folder / "App.app", std::nullopt));
  EXPECT_TRUE(Utils::removeItemAtPathIfPresent(folder / "target"));
  EXPECT_FALSE(fs::exists(folder / "target"));
  EXPECT_TRUE(Utils::removeItemAtPathIfPresent(folder / "target"));
}

TEST(SmallFileJobs, WhatCannotBeRemovedIsNotReplaced) {
  const TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms(0755));
  folder.write("App.app/new", "x");
  folder.write("target/App.app/old", "x");
  fs::permissions(folder / "target/App.app", fs::perms(0555));
  const auto done = asUnprivilegedUser([&]() -> std::string {
    if (Utils::copyItemToDirectory(folder / "App.app", folder / "target")) return "copied";
    return Utils::removeItemAtPathIfPresent(folder / "target/App.app") ? "removed" : "";
  });
  EXPECT_EQ(done, "");
  EXPECT_THAT(pathsBelow(folder / "target"), ElementsAre("App.app", "App.app/old"));
  fs::permissions(folder / "target/App.app", fs::perms(0755));
}

TEST(SmallFileJobs, ZeroByteFiles) {
  const TemporaryFolder folder;
  EXPECT_TRUE(Utils::isZeroByteFile(folder.write("empty", "")));
  EXPECT_FALSE(Utils::isZeroByteFile(folder.write("full", std::string(1, '\0'))));
  EXPECT_TRUE(Utils::isZeroByteFile(folder / "missing"));
  EXPECT_TRUE(Utils::isZeroByteFile(folder.path()));
}

TEST(Listings, AppsBySuffix) {
  const TemporaryFolder folder;
  for (const char* const name : {"A.app", "B.app", "Foo.APP", "app", "C.app.zip", ".DS_Store"}) {
    folder.write(name, "x");
  }
  EXPECT_THAT(Utils::findPathsToAppsInDirectory(folder.path()),
              Optional(UnorderedElementsAre("A.app", "B.app")));
  std::optional<Error> error;
  EXPECT_EQ(Utils::findPathsToAppsInDirectory(folder / "none", &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr((folder / "none").string()));
}

TEST(Listings, OldestFirst) {
  using foundation::FileManager::creationDateOfItemAtPath;
  const TemporaryFolder folder;
  folder.write(".hidden", "x");
  folder.write("zeta", "x");
  fs::path older = folder / "zeta";
  for (const char* const name : {"alpha", "mid dle"}) {
    // Made again until the file system, which keeps times in ticks, says that it is younger.
    ASSERT_TRUE(eventually([&] {
      fs::remove(folder / name);
      folder.write(name, "x");
      return creationDateOfItemAtPath(folder / name) > creationDateOfItemAtPath(older);
    }));
    older = folder / name;
  }
  const auto namesAt = [](const std::string& path) {
    const auto urls = Utils::dateSortedContentsOfPath(path);
    std::vector<fs::path> names;
    for (const auto& url : *urls) {
      EXPECT_TRUE(url.isFileURL());
      names.push_back(fs::path(url.path()).filename());
    }
    return names;
  };
  EXPECT_THAT(namesAt(folder.path()), ElementsAre("zeta", "alpha", "mid dle"));
  folder.write("with space/file", "x");
  EXPECT_THAT(namesAt(folder / "with%20space"), ElementsAre("file"));
  for (const std::string& path :
       {(folder / "with space").string(), (folder / "none").string(), std::string("http://a/b")}) {
    std::optional<Error> error;
    EXPECT_EQ(Utils::dateSortedContentsOfPath(path, &error), std::nullopt);
    ASSERT_TRUE(error) << path;
    EXPECT_THAT(error->localizedDescription(), HasSubstr(path));
  }
}

TEST(Watching, TellsOfAFileOnlyWhileItIsThere) {
  const TemporaryFolder folder;
  std::atomic<int> writes = 0;
  std::atomic<int> sightings = 0;
  // Both watch the same folder; the first says when the second has had its chance.
  const auto file =
      Utils::createDispatchSourceFileAtPathIsAvailable(folder / "wanted", [&] { ++sightings; });
  const auto all =
      Utils::createDispatchSourceObservePathChangeHandler(folder.path(), [&] { ++writes; });
  ASSERT_TRUE(file && all);
  folder.write("other", "x");
  ASSERT_TRUE(eventually([&] { return writes > 0; }));
  EXPECT_EQ(sightings, 0);
  folder.write("wanted", "x");
  ASSERT_TRUE(eventually([&] { return sightings > 0; }));
  const int before = sightings;
  fs::remove(folder / "other");
  EXPECT_TRUE(eventually([&] { return sightings > before; }));
  file->cancel();
  all->cancel();
  EXPECT_FALSE(Utils::createDispatchSourceFileAtPathIsAvailable(folder / "missing/wanted", [] {}));
}

}  // namespace

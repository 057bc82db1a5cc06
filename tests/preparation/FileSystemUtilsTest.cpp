#include "foundation/file/FileManager.h"
#include "preparation/QVTFileSystemUtils.h"
#include "tests/support/Test.h"

namespace {

using Utils = QVTFileSystemUtils;

TEST(FileSystemUtils, AppsAreCopiedToFoldersOfTheirOwn) {
  const TemporaryFolder temporary;
  const ScopedEnvironment variable("TMPDIR", temporary.path().c_str());
  const TemporaryFolder folder;
  folder.write("My App.app/file", "x");
  fs::create_symlink("My App.app", folder / "Link.app");
  const std::string storage = temporary / "com.quorvantile.mac/apps";
  EXPECT_EQ(Utils::appTemporaryStoragePath(), storage);
  const fs::path copy = Utils::moveAppToTempPath(folder / "Link.app/").value();
  EXPECT_EQ(copy.filename(), "Link.app");
  EXPECT_EQ(copy.parent_path().parent_path(), storage);
  EXPECT_FALSE(fs::is_symlink(copy));
  EXPECT_EQ(contentsOf(copy / "file"), "x");
  EXPECT_NE(Utils::moveAppToTempPath(folder / "Link.app").value(), copy);
  EXPECT_EQ(Utils::moveAppToTempPath("/no/such.app"), std::nullopt);
}

TEST(FileSystemUtils, CopyItemReplacesAnItemOfTheNameThatCanBeRemoved) {
  const TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms(0755));
  folder.write("App.app/new", "x");
  folder.write("target/App.app/old", "x");
  const auto copy = [&] {
    return Utils::copyItemToDirectory(folder / "App.app", folder / "target");
  };
  fs::permissions(folder / "target/App.app", fs::perms(0555));
  EXPECT_EQ(asUnprivilegedUser([&] { return std::string(copy() ? "copied" : ""); }), "");
  EXPECT_THAT(pathsBelow(folder / "target"), ElementsAre("App.app", "App.app/old"));
  fs::permissions(folder / "target/App.app", fs::perms(0755));
  EXPECT_TRUE(copy());
  EXPECT_THAT(pathsBelow(folder / "target"), ElementsAre("App.app", "App.app/new"));
  EXPECT_FALSE(Utils::copyItemToDirectory(std::nullopt, folder / "target"));
  EXPECT_FALSE(Utils::copyItemToDirectory(folder / "App.app", std::nullopt));
  EXPECT_TRUE(Utils::removeItemAtPathIfPresent(folder / "target"));
  EXPECT_FALSE(fs::exists(folder / "target"));
  EXPECT_TRUE(Utils::removeItemAtPathIfPresent(folder / "target")) << "it is gone";

  EXPECT_TRUE(Utils::isZeroByteFile(folder.write("empty", "")));
  EXPECT_FALSE(Utils::isZeroByteFile(folder.write("full", std::string(1, '\0'))));
  EXPECT_TRUE(Utils::isZeroByteFile(folder / "missing"));
}

TEST(FileSystemUtils, ListsTheOldestFirst) {
  using foundation::FileManager::creationDateOfItemAtPath;
  const TemporaryFolder folder;
  folder.write("a b/.hidden", "x");
  const fs::path older = folder.write("a b/zeta", "x");
  const fs::path younger = folder / "a b/mid dle";
  // Made again until the file system, which keeps times in ticks, says that it is younger.
  ASSERT_TRUE(eventually([&] {
    fs::remove(younger);
    writeFile(younger, "x");
    return creationDateOfItemAtPath(younger) > creationDateOfItemAtPath(older);
  }));
  const auto urls = Utils::dateSortedContentsOfPath(folder / "a%20b");
  ASSERT_TRUE(urls);
  std::vector<fs::path> names;
  for (const auto& url : *urls) names.push_back(fs::path(url.path()).filename());
  EXPECT_THAT(names, ElementsAre("zeta", "mid dle"));
  for (const char* const path : {"/a b", "/none", "http://a/b"}) {
    std::optional<Error> error;
    EXPECT_EQ(Utils::dateSortedContentsOfPath(path, &error), std::nullopt);
    EXPECT_THAT(error.value().localizedDescription(), HasSubstr(path));
  }
}

TEST(FileSystemUtils, TellOfAFileOnlyWhileItIsThere) {
  const TemporaryFolder folder;
  std::atomic<int> writes = 0;
  std::atomic<int> sightings = 0;
  // Both watch the same folder; the second says when the first has had its chance.
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
  file->cancel();
  all->cancel();
  EXPECT_FALSE(Utils::createDispatchSourceFileAtPathIsAvailable(folder / "missing/wanted", [] {}));
}

}  // namespace

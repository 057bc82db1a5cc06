#include <algorithm>
#include <csignal>
#include <fstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "foundation/FileManager.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace FileManager = foundation::FileManager;
namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

mode_t modeOf(const fs::path& path) {
  struct stat details {};
  EXPECT_EQ(::lstat(path.c_str(), &details), 0) << path;
  return details.st_mode & 07777;
}

void setTime(const fs::path& path, time_t time) {
  const struct timespec times[2] = {{time, 0}, {time, 500000000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::string problemOf(const foundation::Result<>& result) {
  return result ? "none" : result.error().localizedDescription();
}

/// Fewer descriptors than a tree has levels, for as long as this lives.
class FewDescriptors {
 public:
  FewDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const struct rlimit few { 40, before_.rlim_max };
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  struct rlimit before_ {};
};

/// A chain of folders, one in the other, with a file in the last; made level by level, since its
/// path may be longer than the system takes.
void makeChain(const fs::path& top, int levels, const std::string& name) {
  fs::create_directory(top);
  int folder = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < levels; ++i) {
    ASSERT_EQ(::mkdirat(folder, name.c_str(), 0755), 0);
    const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(folder);
    folder = next;
  }
  ::close(::openat(folder, "leaf", O_CREAT | O_WRONLY, 0644));
  ::close(folder);
}

TEST(FileManager, ReadsRegularFilesWhateverSizeTheyTell) {
  const test::TemporaryFolder folder;
  const std::string large(300000, 'q');
  for (const std::string& content : {std::string(), std::string("a\0b", 3), large}) {
    const auto data = FileManager::contentsOfFile(folder.write("file", content));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->text(), content);
  }
  const auto untold = FileManager::contentsOfFile("/proc/self/maps");
  ASSERT_TRUE(untold);
  EXPECT_THAT(std::string(untold->text()), HasSubstr("foundation_tests"));
}

TEST(FileManager, RefusesToReadAnythingElse) {
  const test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0644), 0);
  for (const fs::path& path :
       {folder.path(), folder / "pipe", folder / "missing", fs::path("/dev/zero")}) {
    const auto data = FileManager::contentsOfFile(path);
    ASSERT_FALSE(data) << path;
    EXPECT_THAT(data.error().localizedDescription(), HasSubstr(path.string()));
    EXPECT_EQ(foundation::stringAt(data.error().userInfo, "NSFilePath"), path.string());
  }
}

TEST(FileManager, AFileTooLargeForMemoryIsAnError) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own allocator stops the process";
#endif
  if (test::contentsOf("/proc/sys/vm/overcommit_memory").starts_with("1")) {
    GTEST_SKIP() << "this system promises any amount of memory";
  }
  const test::TemporaryFolder folder;
  const fs::path huge = folder.write("huge", "");
  fs::resize_file(huge, std::uintmax_t{8} << 40);
  const auto data = FileManager::contentsOfFile(huge);
  ASSERT_FALSE(data);
  EXPECT_EQ(data.error().code, ENOMEM);
}

TEST(FileManager, MakesFoldersWithTheirParents) {
  const test::TemporaryFolder folder;
  folder.write("file", "x");
  EXPECT_TRUE(FileManager::createDirectoryWithIntermediates(folder / "a/b/c"));
  EXPECT_TRUE(FileManager::createDirectoryWithIntermediates(folder / "a/b/c"));
  EXPECT_TRUE(FileManager::createDirectoryWithIntermediates((folder / "s/t").string() + "/"));
  EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
  for (const char* const name : {"file", "file/below"}) {
    EXPECT_THAT(problemOf(FileManager::createDirectoryWithIntermediates(folder / name)),
                HasSubstr((folder / name).string()));
  }
}

TEST(FileManagerCopy, KeepsPermissionsTimesAndLinks) {
  const test::TemporaryFolder folder;
  const fs::path from = folder / "App.app";
  const std::string oddName = "sub/\xff\n%#*?[1] \xe4\xb8\xad";
  folder.write("App.app/tool", std::string(100000, 'x'));
  folder.write("App.app/" + oddName, "odd");
  folder.write("App.app/empty", "");
  folder.write("App.app/locked/secret", "s");
  fs::create_directory(from / "void");
  fs::create_symlink("tool", from / "relative");
  fs::create_symlink("/nowhere/at all", from / "dangling");
  fs::create_directory_symlink("sub", from / "folderLink");
  ::chmod((from / "tool").c_str(), 0751);
  ::chmod((from / "locked/secret").c_str(), 0400);
  ::chmod((from / "locked").c_str(), 0555);
  const std::vector<std::string> items = {
      "tool",       oddName, "empty",  "locked/secret", "relative", "dangling",
      "folderLink", "void",  "locked", "sub",           ""};
  time_t time = 1'000'000'000;
  for (const std::string& item : items) setTime(from / item, ++time);

  ASSERT_EQ(problemOf(FileManager::copyItemAtPath(from, folder / "Copy.app")), "none");
  for (const std::string& item : items) {
    SCOPED_TRACE(item);
    const fs::path copy = folder / "Copy.app" / item;
    EXPECT_EQ(modeOf(from / item), modeOf(copy));
    EXPECT_EQ(FileManager::modificationDateOfItemAtPath(from / item),
              FileManager::modificationDateOfItemAtPath(copy));
    ASSERT_EQ(fs::symlink_status(from / item).type(), fs::symlink_status(copy).type());
    if (fs::is_symlink(copy)) {
      EXPECT_EQ(fs::read_symlink(from / item), fs::read_symlink(copy));
    } else if (fs::is_regular_file(copy)) {
      EXPECT_EQ(test::contentsOf(from / item), test::contentsOf(copy));
    }
  }
  EXPECT_EQ(FileManager::subpathsOfDirectoryAtPath(from)->size(),
            FileManager::subpathsOfDirectoryAtPath(folder / "Copy.app")->size());
}

TEST(FileManagerCopy, CopiesALinkAsALinkEvenWithASlashBehind) {
  const test::TemporaryFolder folder;
  fs::create_directory(folder / "real");
  fs::create_directory_symlink("real", folder / "link");
  ASSERT_TRUE(FileManager::copyItemAtPath((folder / "link").string() + "/", folder / "copy"));
  EXPECT_EQ(fs::read_symlink(folder / "copy"), "real");
}

TEST(FileManagerCopy, RefusesWhatItCannotDoWell) {
  const test::TemporaryFolder folder;
  folder.write("file", "new");
  folder.write("taken", "old");
  fs::create_symlink("nowhere", folder / "dangling");
  folder.write("tree/file", "x");
  folder.write("withPipe/file", "x");
  ASSERT_EQ(::mkfifo((folder / "withPipe/pipe").c_str(), 0644), 0);
  const struct {
    const char* source;
    const char* target;
    const char* complaint;
  } cases[] = {
      {"file", "taken", "taken: File exists"},
      {"file", "dangling", "dangling: File exists"},
      {"tree", "taken", "taken: File exists"},
      {"missing", "new", "missing: No such file"},
      {"file", "no/where", "file: No such file"},
      {"withPipe", "new", "withPipe/pipe: Invalid argument"},
      {"tree", "tree/inside", "into itself"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(problemOf(FileManager::copyItemAtPath(folder / c.source, folder / c.target)),
                HasSubstr(c.complaint));
  }
  EXPECT_EQ(test::contentsOf(folder / "taken"), "old");
}

TEST(FileManagerCopy, DeepTreesCostNoDescriptors) {
  const test::TemporaryFolder folder;
  makeChain(folder / "deep", 100, "d");
  const FewDescriptors few;
  EXPECT_EQ(problemOf(FileManager::copyItemAtPath(folder / "deep", folder / "copy")), "none");
  EXPECT_EQ(FileManager::subpathsOfDirectoryAtPath(folder / "copy")->size(), 101U);
}

TEST(FileManagerCopy, ReadOnlyFoldersOfAUserAreCopiedAndRemoved) {
  const test::TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms::all);
  EXPECT_EQ(test::asUnprivilegedUser([&]() -> std::string {
              fs::create_directories(folder / "tree/locked/inner");
              std::ofstream(folder / "tree/locked/inner/file") << "x";
              ::chmod((folder / "tree/locked/inner").c_str(), 0555);
              ::chmod((folder / "tree/locked").c_str(), 0555);
              const auto copied = FileManager::copyItemAtPath(folder / "tree", folder / "copy");
              if (!copied) return problemOf(copied);
              if (modeOf(folder / "copy/locked") != 0555) return "permissions are lost";
              ::chmod((folder / "copy/locked/inner").c_str(), 0);
              for (const char* const name : {"tree", "copy"}) {
                const auto removed = FileManager::removeItemAtPath(folder / name);
                if (!removed) return problemOf(removed);
              }
              return fs::is_empty(folder.path()) ? "all gone" : "something is left";
            }),
            "all gone");
}

TEST(FileManagerRemove, NeverFollowsLinks) {
  const test::TemporaryFolder folder;
  const fs::path canary = folder.write("outside/canary", "alive");
  fs::create_directories(folder / "tree/sub");
  fs::create_directory_symlink(folder / "outside", folder / "tree/sub/link");
  fs::create_directory_symlink(folder / "outside", folder / "link");
  EXPECT_EQ(problemOf(FileManager::removeItemAtPath(folder / "tree")), "none");
  EXPECT_EQ(problemOf(FileManager::removeItemAtPath((folder / "link").string() + "/")), "none");
  EXPECT_EQ(test::contentsOf(canary), "alive");
  EXPECT_THAT(*FileManager::contentsOfDirectoryAtPath(folder.path()),
              UnorderedElementsAre("outside"));
}

TEST(FileManagerRemove, RemovesTreesDeeperThanAnyPath) {
  const test::TemporaryFolder folder;
  makeChain(folder / "deep", 60, std::string(100, 'd'));
  const FewDescriptors few;
  EXPECT_EQ(problemOf(FileManager::removeItemAtPath(folder / "deep")), "none");
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(FileManagerRemove, WhatCannotGoIsNamed) {
  const test::TemporaryFolder folder;
  folder.write("theirs/file", "x");
  EXPECT_THAT(problemOf(FileManager::removeItemAtPath(folder / "missing")),
              HasSubstr((folder / "missing").string() + ": No such file"));
  fs::permissions(folder.path(), fs::perms(0755));
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a folder of somebody else";
  EXPECT_THAT(test::asUnprivilegedUser(
                  [&] { return problemOf(FileManager::removeItemAtPath(folder / "theirs")); }),
              HasSubstr("theirs/file: Permission denied"));
  EXPECT_TRUE(fs::exists(folder / "theirs/file"));
}

TEST(FileManager, ListsEntries) {
  const test::TemporaryFolder folder;
  folder.write("a/b/c", "x");
  folder.write(".hidden", "x");
  fs::create_directory_symlink("..", folder / "a/up");
  EXPECT_THAT(*FileManager::contentsOfDirectoryAtPath(folder.path()),
              UnorderedElementsAre("a", ".hidden"));
  EXPECT_THAT(*FileManager::visibleContentsOfDirectoryAtPath(folder.path()),
              UnorderedElementsAre("a"));
  const auto subpaths = *FileManager::subpathsOfDirectoryAtPath(folder.path());
  EXPECT_THAT(subpaths, UnorderedElementsAre("a", "a/b", "a/b/c", "a/up", ".hidden"));
  EXPECT_LT(std::find(subpaths.begin(), subpaths.end(), "a"),
            std::find(subpaths.begin(), subpaths.end(), "a/b"));
  EXPECT_FALSE(FileManager::contentsOfDirectoryAtPath(folder / "a/b/c"));
}

TEST(FileManager, TellsBirthBeforeModification) {
  const test::TemporaryFolder folder;
  const fs::path file = folder.write("file", "x");
  setTime(file, 1'000'000'000);
  const foundation::Date modified{std::chrono::milliseconds(1'000'000'000'500)};
  EXPECT_EQ(FileManager::modificationDateOfItemAtPath(file), modified);
  struct statx details {};
  ASSERT_EQ(::statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME, &details), 0);
  const auto created = FileManager::creationDateOfItemAtPath(file);
  ASSERT_TRUE(created);
  if (details.stx_mask & STATX_BTIME) {
    EXPECT_EQ(std::chrono::floor<std::chrono::seconds>(*created).time_since_epoch().count(),
              details.stx_btime.tv_sec);
  } else {
    EXPECT_EQ(*created, modified);
  }
  EXPECT_FALSE(FileManager::creationDateOfItemAtPath(folder / "missing"));
}

TEST(FileManagerWrite, ReplacesTheFileAtOnce) {
  const test::TemporaryFolder folder;
  const fs::path file = folder.write("file", "old");
  const fs::path canary = folder.write("canary", "untouched");
  fs::create_symlink("canary", folder / "link");
  ::chmod(file.c_str(), 0640);
  std::ifstream reader(file);
  for (const char* const name : {"file", "link", "new"}) {
    ASSERT_TRUE(FileManager::writeAtomically(foundation::bytesOf("fresh"), folder / name));
    EXPECT_EQ(test::contentsOf(folder / name), "fresh");
  }
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
  EXPECT_EQ(modeOf(file), 0640U);
  const mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(modeOf(folder / "new"), 0666U & ~mask);
  EXPECT_EQ(test::contentsOf(canary), "untouched");
  EXPECT_EQ(FileManager::contentsOfDirectoryAtPath(folder.path())->size(), 4U);
}

TEST(FileManagerWrite, AFailureLeavesTheOldFileAndNothingElse) {
  const test::TemporaryFolder folder;
  folder.write("file", "old");
  EXPECT_THAT(
      test::inChildProcess([&]() -> std::string {
        std::signal(SIGXFSZ, SIG_IGN);
        const struct rlimit small { 1000, 1000 };
        ::setrlimit(RLIMIT_FSIZE, &small);
        const std::string large(5000, 'x');
        return problemOf(FileManager::writeAtomically(foundation::bytesOf(large), folder / "file"));
      }),
      HasSubstr("file: File too large"));
  EXPECT_EQ(test::contentsOf(folder / "file"), "old");
  EXPECT_THAT(problemOf(FileManager::writeAtomically({}, folder / "no/where")),
              HasSubstr("no/where: No such file"));
  EXPECT_THAT(*FileManager::contentsOfDirectoryAtPath(folder.path()), UnorderedElementsAre("file"));
}

TEST(UserFolders, TheTemporaryFolderOfTheEnvironmentEndsInASlash) {
  for (const char* const given : {"/some/where", "/some/where/"}) {
    const test::ScopedEnvironment environment("TMPDIR", given);
    EXPECT_EQ(*FileManager::temporaryDirectory(), "/some/where/");
  }
}

TEST(UserFolders, WithoutItTheUserGetsAPrivateOne) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can act as a user of the test's own";
  const test::ScopedEnvironment environment("TMPDIR", nullptr);
  const std::string own = "/tmp/sendoff-" + std::to_string(test::kUnprivilegedUser);
  const auto answer = [] {
    const auto folder = FileManager::temporaryDirectory();
    return folder ? *folder : folder.error().localizedDescription();
  };
  fs::remove_all(own);
  EXPECT_EQ(test::asUnprivilegedUser(answer), own + "/");
  EXPECT_EQ(modeOf(own), 0700U);
  ::chmod(own.c_str(), 0777);
  EXPECT_EQ(test::asUnprivilegedUser(answer), own + "/");
  EXPECT_EQ(modeOf(own), 0700U);
  fs::remove_all(own);
  fs::create_directory(own);
  EXPECT_THAT(test::asUnprivilegedUser(answer), HasSubstr(own + " is refused"));
  fs::remove_all(own);
  fs::create_directory_symlink("/tmp", own);
  EXPECT_THAT(test::asUnprivilegedUser(answer), HasSubstr(own + " is refused"));
  fs::remove(own);
}

TEST(UserFolders, WithoutHomeTheParentsIsTakenIfTheUserIsTheSame) {
  const auto homeOfOrphan = [] {
    ::unsetenv("HOME");
    return FileManager::homeDirectory();
  };
  {
    const test::ScopedEnvironment environment("HOME", "/my/home");
    EXPECT_EQ(FileManager::homeDirectory(), "/my/home");
  }
  const std::string started = test::contentsOf("/proc/self/environ");
  const auto home = ("\0" + started).find(std::string("\0HOME=/", 7));
  if (home == std::string::npos) GTEST_SKIP() << "the tests were started without a home";
  const std::string expected = started.substr(started.find("HOME=") + 5).c_str();
  EXPECT_EQ(test::inChildProcess(homeOfOrphan), expected);
  if (::geteuid() == 0) {
    EXPECT_EQ(test::asUnprivilegedUser(homeOfOrphan), "/");
  }
}

}  // namespace

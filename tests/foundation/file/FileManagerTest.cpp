#include "foundation/file/FileManager.h"
#include "tests/support/Test.h"

namespace FileManager = foundation::FileManager;

namespace {

struct FileManagerTest : testing::Test {
  TemporaryFolder folder_;
};

mode_t modeOf(const fs::path& path) {
  return static_cast<mode_t>(fs::symlink_status(path).permissions());
}

TEST_F(FileManagerTest, ReadsRegularFilesWhateverSizeTheyTellAndNothingElse) {
  EXPECT_THAT(std::string(FileManager::contentsOfFile("/proc/self/maps")->text()),
              HasSubstr("foundation_file_tests"));
  const std::string content = std::string("a\0b", 3) + std::string(300000, 'q');
  folder_.write("file", content);
  fs::create_symlink("file", folder_ / "link");
  EXPECT_EQ(FileManager::contentsOfFile(folder_ / "link")->text(), content);
  EXPECT_EQ(FileManager::contentsOfFile(folder_ / "link", foundation::Links::refused).error().code,
            ELOOP);
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0644), 0);
  for (const fs::path& path :
       {folder_.path(), folder_ / "pipe", folder_ / "missing", fs::path("/dev/zero")}) {
    const auto data = FileManager::contentsOfFile(path);
    EXPECT_THAT(problemOf(data), HasSubstr(path.string()));
    EXPECT_EQ(foundation::stringAt(data.error().userInfo, "NSFilePath"), path.string());
  }
}

TEST_F(FileManagerTest, CopyKeepsPermissionsTimesAndLinks) {
  const fs::path from = folder_ / "App.app";
  const fs::path copy = folder_ / "Copy.app";
  folder_.write("App.app/tool", std::string(100000, 'x'));
  folder_.write("App.app/sub/\xff\n%#*?[1] \xe4\xb8\xad", "odd");
  folder_.write("App.app/locked/secret", "s");
  fs::create_symlink("/nowhere/at all", from / "dangling");
  fs::create_directory_symlink("sub", from / "folderLink");
  ::chmod((from / "tool").c_str(), 0751);
  ::chmod((from / "locked/secret").c_str(), 0400);
  ::chmod((from / "locked").c_str(), 0555);
  ASSERT_EQ(problemOf(FileManager::copyItemAtPath(from, copy)), "");
  EXPECT_TRUE(snapshot(copy) == snapshot(from));
  const auto times = [](const fs::path& folder) {
    return outputOf({"sh", "-c", "cd $0; find . -printf '%p %T@\\n' | sort", folder});
  };
  EXPECT_EQ(times(copy), times(from));
  const std::string link = (from / "folderLink").string() + "/";
  ASSERT_TRUE(FileManager::copyItemAtPath(link, folder_ / "copy"));
  EXPECT_EQ(fs::read_symlink(folder_ / "copy"), "sub") << "a link, even with a slash behind";
}

TEST_F(FileManagerTest, CopyRefusesWhatItCannotDoWell) {
  folder_.write("taken", "old");
  folder_.write("tree/file", "x");
  folder_.write("withPipe/file", "x");
  ASSERT_EQ(::mkfifo((folder_ / "withPipe/pipe").c_str(), 0644), 0);
  const struct {
    const char *source, *target, *complaint;
  } cases[] = {
      {"tree", "taken", "taken: File exists"},
      {"missing", "new", "missing: No such file"},
      {"tree/file", "no/where", "file: No such file"},
      {"withPipe", "new", "withPipe/pipe: Invalid argument"},
      {"tree", "tree/inside", "into itself"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(problemOf(FileManager::copyItemAtPath(folder_ / c.source, folder_ / c.target)),
                HasSubstr(c.complaint));
  }
  EXPECT_EQ(contentsOf(folder_ / "taken"), "old");
}

TEST_F(FileManagerTest, DeepTreesCostNoDescriptors) {
  const auto makeNested = [](const fs::path& top, int depth, const std::string& name) {
    fs::create_directory(top);
    outputOf({"python3", "-c", R"(
import os, sys
os.chdir(sys.argv[1])
for _ in range(int(sys.argv[2])):
    os.mkdir(sys.argv[3])
    os.chdir(sys.argv[3])
)",
              top, std::to_string(depth), name});
  };
  makeNested(folder_ / "deep", 100, "d");
  makeNested(folder_ / "deeper than any path", 60, std::string(100, 'd'));
  const std::string problems = inChildProcess([&] {
    const struct rlimit few { 40, 40 };
    ::setrlimit(RLIMIT_NOFILE, &few);
    return problemOf(FileManager::copyItemAtPath(folder_ / "deep", folder_ / "copy")) +
           problemOf(FileManager::removeItemAtPath(folder_ / "deeper than any path"));
  });
  EXPECT_EQ(problems, "");
  EXPECT_THAT(pathsBelow(folder_ / "copy"), SizeIs(100));
  EXPECT_FALSE(fs::exists(folder_ / "deeper than any path"));
}

TEST_F(FileManagerTest, ReadOnlyFoldersOfAUserAreCopiedAndRemoved) {
  fs::permissions(folder_.path(), fs::perms::all);
  const std::string problems = asUnprivilegedUser([&] {
    folder_.write("tree/locked/inner/file", "x");
    ::chmod((folder_ / "tree/locked/inner").c_str(), 0555);
    ::chmod((folder_ / "tree/locked").c_str(), 0555);
    std::string text = problemOf(FileManager::copyItemAtPath(folder_ / "tree", folder_ / "copy"));
    if (modeOf(folder_ / "copy/locked") != 0555) text += "permissions are lost";
    ::chmod((folder_ / "copy/locked/inner").c_str(), 0);
    for (const char* const name : {"tree", "copy"}) {
      text += problemOf(FileManager::removeItemAtPath(folder_ / name));
    }
    return text;
  });
  EXPECT_EQ(problems, "");
  EXPECT_THAT(pathsBelow(folder_.path()), IsEmpty());
}

TEST_F(FileManagerTest, RemoveNeverFollowsLinksAndNamesWhatCannotGo) {
  const auto remove = [&](const std::string& name) {
    return problemOf(FileManager::removeItemAtPath(folder_.path().string() + "/" + name));
  };
  folder_.write("outside/canary", "alive");
  fs::create_directories(folder_ / "tree/sub");
  fs::create_directory_symlink(folder_ / "outside", folder_ / "tree/sub/link");
  fs::create_directory_symlink(folder_ / "outside", folder_ / "link");
  EXPECT_EQ(remove("tree") + remove("link/"), "");
  EXPECT_THAT(remove("missing"), HasSubstr((folder_ / "missing").string() + ": No such file"));
  if (::geteuid() == 0) {
    fs::permissions(folder_.path(), fs::perms(0755));
    EXPECT_THAT(asUnprivilegedUser([&] { return remove("outside"); }),
                HasSubstr("outside/canary: Permission denied"));
  }
  EXPECT_THAT(pathsBelow(folder_.path()), ElementsAre("outside", "outside/canary"));
}

TEST_F(FileManagerTest, WriteReplacesTheFileAtOnce) {
  const fs::path file = folder_.write("file", "old");
  folder_.write("canary", "untouched");
  fs::create_symlink("canary", folder_ / "link");
  ::chmod(file.c_str(), 0640);
  std::ifstream reader(file);
  for (const char* const name : {"file", "link", "new"}) {
    ASSERT_TRUE(FileManager::writeAtomically(bytesOf("fresh"), folder_ / name));
    EXPECT_EQ(contentsOf(folder_ / name), "fresh");
  }
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
  EXPECT_EQ(modeOf(file), 0640U);
  EXPECT_EQ(modeOf(folder_ / "new"), modeOf(folder_ / "canary")) << "as the umask has it";
  EXPECT_EQ(contentsOf(folder_ / "canary"), "untouched");
  EXPECT_THAT(pathsBelow(folder_.path()), SizeIs(4));
}

TEST_F(FileManagerTest, AFailedWriteLeavesTheOldFileAndNothingElse) {
  folder_.write("file", "old");
  const std::string problem = inChildProcess([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small { 1000, 1000 };
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::string large(5000, 'x');
    return problemOf(FileManager::writeAtomically(bytesOf(large), folder_ / "file"));
  });
  EXPECT_THAT(problem, HasSubstr("file: File too large"));
  EXPECT_EQ(contentsOf(folder_ / "file"), "old");
  EXPECT_THAT(problemOf(FileManager::writeAtomically({}, folder_ / "no/where")),
              HasSubstr("no/where: No such file"));
  EXPECT_THAT(pathsBelow(folder_.path()), ElementsAre("file"));
}

}  // namespace

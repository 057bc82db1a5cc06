#include "foundation/file/UserFolders.h"
#include "tests/support/Test.h"

namespace FileManager = foundation::FileManager;

namespace {

TEST(UserFolders, AUsersTemporaryFolderIsPrivateAndReal) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can act as a user of the test's own";
  const ScopedEnvironment environment("TMPDIR", nullptr);
  const std::string own = "/tmp/sendoff-" + std::to_string(kUnprivilegedUser);
  const auto answer = [] {
    return asUnprivilegedUser([] {
      const auto folder = FileManager::temporaryDirectory();
      return folder ? *folder : problemOf(folder);
    });
  };
  for (const bool isNew : {true, false}) {
    EXPECT_EQ(answer(), own + "/") << isNew;
    EXPECT_EQ(fs::status(own).permissions(), fs::perms(0700));
    ::chmod(own.c_str(), 0755);
  }
  for (const mode_t mode : {0770U, 0707U}) {
    ::chmod(own.c_str(), mode);
    EXPECT_THAT(answer(), HasSubstr(own + " is refused: others may write to it: "));
  }
  fs::remove_all(own);
  fs::create_directory_symlink("/tmp", own);
  EXPECT_EQ(::lchown(own.c_str(), kUnprivilegedUser, 0), 0);
  EXPECT_THAT(answer(), HasSubstr(own + " is refused"));
  fs::remove(own);
}

TEST(UserFolders, WithoutHomeTheParentsIsTakenIfTheUserIsTheSame) {
  const auto homeOfOrphan = [] {
    ::unsetenv("HOME");
    return FileManager::homeDirectory();
  };
  const std::string started = '\0' + contentsOf("/proc/self/environ");
  const auto home = started.find(std::string("\0HOME=/", 7));
  if (home == std::string::npos) GTEST_SKIP() << "the tests were started without a home";
  EXPECT_EQ(inChildProcess(homeOfOrphan), started.substr(home + 6).c_str());
  if (::geteuid() == 0) {
    EXPECT_EQ(asUnprivilegedUser(homeOfOrphan), "/");
  }
}

}  // namespace

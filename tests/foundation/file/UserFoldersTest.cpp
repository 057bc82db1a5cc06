#include "foundation/file/UserFolders.h"
#include "tests/support/Test.h"

namespace FileManager = foundation::FileManager;

namespace {

std::string temporaryDirectory() {
  const auto folder = FileManager::temporaryDirectory();
  return folder ? *folder : problemOf(folder);
}

mode_t modeOf(const std::string& path) {
  return static_cast<mode_t>(fs::symlink_status(path).permissions());
}

/// Another user's folder in /tmp, which is named after the user.
class TemporaryFolderOfAUser : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can act as a user of the test's own";
  }
  void TearDown() override { fs::remove_all(own_); }

  ScopedEnvironment environment_{"TMPDIR", nullptr};
  std::string own_ = "/tmp/sendoff-" + std::to_string(kUnprivilegedUser);
};

TEST_F(TemporaryFolderOfAUser, IsPrivateAndReal) {
  for (const bool isNew : {true, false}) {
    EXPECT_EQ(asUnprivilegedUser(temporaryDirectory), own_ + "/") << isNew;
    EXPECT_EQ(modeOf(own_), 0700U);
    ::chmod(own_.c_str(), 0755);
  }
  for (const mode_t mode : {0770U, 0707U}) {
    ::chmod(own_.c_str(), mode);
    EXPECT_EQ(asUnprivilegedUser(temporaryDirectory),
              "temporary folder " + own_ +
                  " is refused: others may write to it: Operation not permitted");
  }
  fs::remove_all(own_);
  fs::create_directory_symlink("/tmp", own_);
  ASSERT_EQ(::lchown(own_.c_str(), kUnprivilegedUser, 0), 0);
  EXPECT_THAT(asUnprivilegedUser(temporaryDirectory), HasSubstr(own_ + " is refused"));
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

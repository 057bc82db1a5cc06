#include "package/AppPackage.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

using package::AppPackage;

class AppPackageTest : public testing::Test {
 protected:
  void SetUp() override { fs::create_directory(folder_ / "X.app"); }
  fs::path writeProfile(const fs::path& path, const std::string& name) const {
    const auto dictionary = ProfileOptions{.name = name}.dictionary();
    return folder_.write(path, makeProvisioningProfile(dictionary, makeRoot()).text());
  }
  std::optional<std::string> profileName() const {
    return foundation::stringAt((*app_.profile())->contents, "Name");
  }

  const TemporaryFolder folder_;
  const AppPackage app_{folder_ / "X.app"};
};

TEST_F(AppPackageTest, AnEmptyFolderHasNoParts) {
  EXPECT_EQ(app_.infoPlistPath(), app_.path() + "/Info.plist");
  EXPECT_EQ(app_.profilePath(), app_.path() + "/embedded.mobileprovision");
  EXPECT_FALSE(app_.infoDictionary());
  const auto profile = app_.profile();
  ASSERT_TRUE(profile);
  EXPECT_FALSE(*profile);
  ASSERT_TRUE(app_.bundle());
  EXPECT_FALSE(app_.bundle()->executablePath());
  EXPECT_FALSE(AppPackage(folder_ / "missing").bundle());
}

TEST_F(AppPackageTest, FindsItsParts) {
  const Dictionary info{{"CFBundleExecutable", "program"}};
  writePlist(folder_ / "X.app/Info.plist", info);
  folder_.write("X.app/program", "x");
  EXPECT_EQ(app_.infoDictionary(), info);
  EXPECT_EQ(app_.bundle()->executablePath(), app_.path() + "/program");
  writeProfile("X.app/embedded.provisionprofile", "mac");
  EXPECT_EQ(profileName(), "mac");
  writeProfile("X.app/embedded.mobileprovision", "mobile");
  EXPECT_EQ(profileName(), "mobile");
}

TEST_F(AppPackageTest, LinksOutOfItAreNotFollowed) {
  fs::create_symlink(writePlist(folder_ / "other.plist", {{"a", 1}}), folder_ / "X.app/Info.plist");
  fs::create_symlink(folder_.write("program", "x"), folder_ / "X.app/X");
  fs::create_symlink(writeProfile("other", "other"), folder_ / "X.app/embedded.mobileprovision");
  const auto log = logOf([&] {
    EXPECT_FALSE(app_.infoDictionary());
    EXPECT_FALSE(app_.bundle()->executablePath());
  });
  EXPECT_THAT(log, HasSubstr("Info.plist leads out of " + app_.path() + " and is not used"));
  EXPECT_THAT(problemOf(app_.profile()), HasSubstr("leads out of the bundle"));
}

TEST_F(AppPackageTest, AnUnreadableProfileIsAnErrorWithItsPath) {
  const std::string path = folder_.write("X.app/embedded.mobileprovision", "noise");
  EXPECT_EQ(problemOf(app_.profile()), path + ": no property list in the profile");
}

}  // namespace

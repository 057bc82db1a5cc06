#include "package/AppPackage.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

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
  const package::AppPackage app_{folder_ / "X.app"};
};

TEST_F(AppPackageTest, FindsItsParts) {
  EXPECT_FALSE(app_.infoDictionary());
  const auto none = app_.profile();
  EXPECT_TRUE(none && !*none);
  const Dictionary info{{"CFBundleExecutable", "program"}};
  writePlist(folder_ / "X.app/Info.plist", info);
  EXPECT_EQ(app_.infoDictionary(), info);
  writeProfile("X.app/embedded.provisionprofile", "mac");
  EXPECT_EQ(profileName(), "mac");
  writeProfile("X.app/embedded.mobileprovision", "mobile");
  EXPECT_EQ(profileName(), "mobile");
  const std::string noise = folder_.write("X.app/embedded.mobileprovision", "noise");
  EXPECT_EQ(problemOf(app_.profile()), noise + ": no property list in the profile");
}

TEST_F(AppPackageTest, LinksOutOfItAreNotFollowed) {
  fs::create_symlink(writePlist(folder_ / "other.plist", {{"a", 1}}), folder_ / "X.app/Info.plist");
  fs::create_symlink(writeProfile("other", "other"), folder_ / "X.app/embedded.mobileprovision");
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(app_.infoDictionary()); }),
              HasSubstr("Info.plist leads out of " + app_.path() + " and is not used"));
  EXPECT_THAT(problemOf(app_.profile()), HasSubstr("leads out of the bundle"));
}

}  // namespace

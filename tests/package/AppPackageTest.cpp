#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/format/PropertyList.h"
#include "package/AppPackage.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Dictionary;
using package::AppPackage;
using testing::HasSubstr;

class AppPackageTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_ / "X.app"); }
  std::string writeProfile(const std::string& path, const std::string& name) {
    const auto dictionary = test::ProfileOptions{.name = name}.dictionary();
    return folder_.write(path, test::makeProvisioningProfile(dictionary, test::makeRoot()).text());
  }

  const test::TemporaryFolder folder_;
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
  folder_.write("X.app/Info.plist", *foundation::PropertyList::xml(info));
  folder_.write("X.app/program", "x");
  writeProfile("X.app/embedded.provisionprofile", "mac");
  EXPECT_EQ(app_.infoDictionary(), info);
  EXPECT_EQ(app_.bundle()->executablePath(), app_.path() + "/program");
  EXPECT_EQ(foundation::stringAt((*app_.profile())->contents, "Name"), "mac");
  writeProfile("X.app/embedded.mobileprovision", "mobile");
  EXPECT_EQ(foundation::stringAt((*app_.profile())->contents, "Name"), "mobile");
}

TEST_F(AppPackageTest, LinksOutOfItAreNotFollowed) {
  const auto link = [&](const std::string& target, const std::string& name) {
    std::filesystem::create_symlink(target, folder_ / ("X.app/" + name));
  };
  link(folder_.write("other.plist", *foundation::PropertyList::xml(Dictionary{{"a", 1}})),
       "Info.plist");
  link(folder_.write("program", "x"), "X");
  link(writeProfile("other", "other"), "embedded.mobileprovision");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(app_.infoDictionary());
  EXPECT_FALSE(app_.bundle()->executablePath());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Info.plist leads out of " + app_.path() + " and is not used"));
  const auto profile = app_.profile();
  ASSERT_FALSE(profile);
  EXPECT_THAT(profile.error().localizedDescription(), HasSubstr("leads out of the bundle"));
}

TEST_F(AppPackageTest, AnUnreadableProfileIsAnErrorWithItsPath) {
  const std::string path = folder_.write("X.app/embedded.mobileprovision", "noise");
  const auto profile = app_.profile();
  ASSERT_FALSE(profile);
  EXPECT_EQ(profile.error().localizedDescription(), path + ": no property list in the profile");
}

}  // namespace

#include "package/AppPackage.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

std::string profileNamed(const std::string& name) {
  const auto dictionary = ProfileOptions{.name = name}.dictionary();
  return std::string(makeProvisioningProfile(dictionary, makeRoot()).text());
}

TEST(AppPackage, FindsItsParts) {
  const TemporaryFolder folder;
  const package::AppPackage app(folder.path());
  EXPECT_FALSE(app.infoDictionary());
  const auto none = app.profile();
  EXPECT_TRUE(none && !*none);
  writePlist(folder / "Info.plist", {{"a", 1}});
  EXPECT_EQ(app.infoDictionary(), (Dictionary{{"a", 1}}));
  for (const char* const name : {"embedded.provisionprofile", "embedded.mobileprovision"}) {
    folder.write(name, profileNamed(name));
    EXPECT_EQ(foundation::stringAt((*app.profile())->contents, "Name"), name);
  }
  const std::string noise = folder.write("embedded.mobileprovision", "noise");
  EXPECT_EQ(problemOf(app.profile()), noise + ": no property list in the profile");
}

TEST(AppPackage, LinksOutOfItAreNotFollowed) {
  const TemporaryFolder folder;
  const package::AppPackage app(folder / "X.app");
  fs::create_directory(folder / "X.app");
  fs::create_symlink(writePlist(folder / "other.plist", {{"a", 1}}), folder / "X.app/Info.plist");
  fs::create_symlink(folder.write("other", profileNamed("other")), app.profilePath());
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(app.infoDictionary()); }),
              HasSubstr("Info.plist leads out of " + app.path() + " and is not used"));
  EXPECT_THAT(problemOf(app.profile()), HasSubstr("leads out of the bundle"));
}

}  // namespace

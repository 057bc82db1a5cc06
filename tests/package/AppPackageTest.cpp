#include "package/AppPackage.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

TEST(AppPackage, FindsItsPartsButNoneThatLinksLeadTo) {
  const TemporaryFolder folder;
  const package::AppPackage app(folder / "X.app");
  for (const char* const name : {"embedded.provisionprofile", "embedded.mobileprovision"}) {
    const auto dictionary = ProfileOptions{.name = name}.dictionary();
    folder.write("X.app/" + std::string(name),
                 makeProvisioningProfile(dictionary, makeRoot()).text());
    EXPECT_EQ(foundation::stringAt((*app.profile())->contents, "Name"), name);
  }
  fs::rename(app.profilePath(), folder / "other");
  fs::create_symlink(folder / "other", app.profilePath());
  EXPECT_THAT(problemOf(app.profile()), HasSubstr("leads out of the bundle"));
  fs::create_symlink(writePlist(folder / "other.plist", {{"a", 1}}), app.infoPlistPath());
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(app.infoDictionary()); }),
              HasSubstr("Info.plist leads out of " + app.path() + " and is not used"));
}

}  // namespace

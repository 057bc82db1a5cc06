#include "signing/QVTProvisioningProfile.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

class QVTProvisioningProfileTest : public testing::Test {
 protected:
  std::string write(const std::string& name, const Dictionary& dictionary) const {
    return folder_.write(
        name, keepForFuzzing("Profile", makeProvisioningProfile(dictionary, signer_).text()));
  }
  std::shared_ptr<QVTProvisioningProfile> read(const Dictionary& dictionary) const {
    return QVTProvisioningProfile::initWithPath(write("read.mobileprovision", dictionary));
  }
  std::string install(const std::string& name, ProfileOptions options, int days = 0) const {
    options.creationDate += std::chrono::days(days);
    return write("Library/MobileDevice/Provisioning Profiles/" + name, options.dictionary());
  }

  const TemporaryFolder folder_;
  const ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  const MadeIdentity signer_ = makeRoot("Profile Signer");
};

TEST_F(QVTProvisioningProfileTest, ItsCopyHasNoUUID) {
  const auto profile = read(ProfileOptions().dictionary());
  EXPECT_THAT(profile->copyWithZone()->description(),
              AllOf(StartsWith("<QVTProvisioningProfile: 0x"),
                    EndsWith("> Example Distribution com.example.app")));
  EXPECT_EQ(profile->copyWithZone()->UUID(), std::nullopt);
}

TEST_F(QVTProvisioningProfileTest, FirstCertificateWithItsKeyIsChosen) {
  const auto first = makeLeaf(signer_);
  const auto second = makeLeaf(signer_, {.commonName = "Müller"});
  const auto keychain = folder_.write("login.pem", first.keyPEM() + second.keyPEM()).string();
  fs::permissions(keychain, fs::perms::owner_all);
  ProfileOptions options;
  options.developerCertificates = {signer_.der(), first.der(), second.der()};
  const auto path = write("several.mobileprovision", options.dictionary());
  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(path, keychain);
  ASSERT_THAT(profile->developerCertificates(), SizeIs(3));
  EXPECT_EQ(profile->certWithPrivateKeyAvailable(), profile->developerCertificates()[1]);
  EXPECT_EQ(profile->certForCodeSignIdentity(second.sha1()), profile->developerCertificates()[2]);
  EXPECT_FALSE(profile->certForCodeSignIdentity(std::string(40, '0')));
  EXPECT_EQ(profile->developerCertificates()[2]->description(),
            "Müller, private key available 1, signning identity " + second.sha1());
  std::optional<Error> error;
  EXPECT_FALSE(
      QVTProvisioningProfile::initWithPath(path)->certWithPrivateKeyAvailableOrError(&error));
  EXPECT_TRUE(error);
}

TEST_F(QVTProvisioningProfileTest, IdentifiersMatchComponentByComponent) {
  const std::tuple<std::string, std::optional<std::string>, bool> cases[] = {
      {"com.example.app", "com.example.App", false},
      {"com.example", "com.example.app", true},
      {"com.example.app", "com.example", false},
      {"com.example.*", "com.example", true},
      {"com.*.app", "com.other.app", true},
      {"com.*.app", "com.other.tool", false},
      {"com.ex*", "com.example", false},
      {"*", std::nullopt, true},
      {"com", std::nullopt, false}};
  for (const auto& [own, given, matches] : cases) {
    const auto profile = read(ProfileOptions{.bundleIdentifier = own}.dictionary());
    EXPECT_EQ(profile->matchesBundleIdentifier(given), matches) << own << given.value_or(" none");
  }
  EXPECT_TRUE(read({})->matchesBundleIdentifier("com.example.app"));
}

TEST_F(QVTProvisioningProfileTest, NewestInstalledSuccessorIsFound) {
  const auto profile = read(ProfileOptions{.uuid = "OWN"}.dictionary());
  EXPECT_FALSE(profile->findNewerMatchForProvisioningProfile()) << "no folder of profiles";
  install("same-age.mobileprovision", {.uuid = "1"});
  install("own.mobileprovision", {.uuid = "OWN"}, 9);
  install("renamed.mobileprovision", {.name = "Other", .uuid = "2"}, 9);
  install("other-app.mobileprovision", {.uuid = "3", .bundleIdentifier = "com.example.b"}, 9);
  install("mac.provisionprofile", {.uuid = "4"}, 9);
  const fs::path old = install("backup.mobileprovision.old", {.uuid = "5"}, 9);
  writeFile(old.parent_path() / "broken.mobileprovision", "nothing");
  EXPECT_THAT(QVTProvisioningProfile::installedProfiles(), SizeIs(5));
  EXPECT_FALSE(profile->findNewerMatchForProvisioningProfile());

  install("newer.mobileprovision", {.uuid = "NEWER"}, 1);
  install("newest.mobileprovision", {.uuid = "NEWEST"}, 3);
  install("new.mobileprovision", {.uuid = "NEW"}, 2);
  const auto found = profile->findNewerMatchForProvisioningProfile();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->UUID(), "NEWEST");
  ASSERT_TRUE(QVTProvisioningProfile::mobileProfileWithUUID("newest")) << "by its file's name";
  EXPECT_FALSE(QVTProvisioningProfile::mobileProfileWithUUID("oldest"));
}

}  // namespace

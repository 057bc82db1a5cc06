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

TEST_F(QVTProvisioningProfileTest, EveryFieldIsRead) {
  ProfileOptions options{.name = "Verteilung für Köln",
                         .developerCertificates = {signer_.der(), Data(std::string("junk"))},
                         .provisionedDevices = std::vector<std::string>{"d2", "d1", "d2"},
                         .getTaskAllow = true};
  const auto path = write("a.mobileprovision", options.dictionary());
  const auto profile = QVTProvisioningProfile::initWithPath(path);
  ASSERT_TRUE(profile);
  EXPECT_EQ(profile->path(), path);
  EXPECT_EQ(profile->name(), options.name);
  EXPECT_EQ(profile->UUID(), options.uuid);
  EXPECT_EQ(profile->bundleIdentifierWithAppIdPrefix(), "ABCDE12345.com.example.app");
  EXPECT_EQ(profile->bundleIdentifier(), "com.example.app");
  EXPECT_EQ(profile->applicationIdentifierPrefix(), "ABCDE12345");
  EXPECT_EQ(profile->applicationIdentifierPrefixWildCard(), "ABCDE12345.*");
  EXPECT_EQ(profile->creationDate(), options.creationDate);
  EXPECT_EQ(profile->expirationDate(), options.expirationDate);
  EXPECT_THAT(profile->provisionedDevices(), ElementsAre("d1", "d2"));
  EXPECT_TRUE(profile->getTaskAllow() && profile->mobile());
  EXPECT_FALSE(profile->provisionsAllDevices() || profile->hasWildcardsInBundleIdentifier());
  ASSERT_THAT(profile->developerCertificates(), SizeIs(1)) << "other values are skipped";
  EXPECT_EQ(profile->developerCertificates()[0]->commonName(), "Profile Signer");
  EXPECT_THAT(profile->description(), AllOf(StartsWith("<QVTProvisioningProfile: 0x"),
                                            EndsWith("> Verteilung für Köln com.example.app")));
  EXPECT_EQ(profile->copyWithZone()->name(), options.name);
  EXPECT_EQ(profile->copyWithZone()->UUID(), std::nullopt);
  EXPECT_EQ(profile->UUID(), options.uuid) << "only the copy lacks it";
}

TEST_F(QVTProvisioningProfileTest, KindsOfProfileDiffer) {
  EXPECT_TRUE(
      read(ProfileOptions{.provisionsAllDevices = true}.dictionary())->provisionsAllDevices());
  auto flags = ProfileOptions{}.dictionary();
  flags["ProvisionsAllDevices"] = "YES";
  EXPECT_TRUE(read(flags)->provisionsAllDevices()) << "a text has a boolean reading";
  const auto wildcard = read(ProfileOptions{.bundleIdentifier = "*"}.dictionary());
  EXPECT_EQ(wildcard->bundleIdentifier(), "*");
  EXPECT_TRUE(wildcard->hasWildcardsInBundleIdentifier());
  const auto odd =
      read(ProfileOptions{.prefix = "A", .bundleIdentifier = "A.x.A.A.y"}.dictionary());
  EXPECT_EQ(odd->bundleIdentifier(), "x.y") << "the prefix is taken out wherever it occurs";
  const auto mac = QVTProvisioningProfile::initWithPath(write("m.provisionprofile", {}));
  ASSERT_TRUE(mac);
  EXPECT_FALSE(mac->mobile());
}

TEST_F(QVTProvisioningProfileTest, MissingAndWronglyTypedKeysAreAbsent) {
  const Dictionary wrong{{"Name", 42},
                         {"UUID", true},
                         {"CreationDate", "yesterday"},
                         {"ExpirationDate", Array()},
                         {"DeveloperCertificates", Array{"text", 1}},
                         {"ProvisionedDevices", "all"},
                         {"ApplicationIdentifierPrefix", Array{7}},
                         {"ProvisionsAllDevices", Array{true}},
                         {"Entitlements", Array{"get-task-allow"}}};
  for (const auto& dictionary : {Dictionary(), wrong}) {
    SCOPED_TRACE(dictionary.size());
    const auto profile = read(dictionary);
    ASSERT_TRUE(profile);
    EXPECT_FALSE(profile->name() || profile->UUID() || profile->creationDate() ||
                 profile->expirationDate() || profile->applicationIdentifierPrefix() ||
                 profile->bundleIdentifier() || profile->bundleIdentifierWithAppIdPrefix());
    EXPECT_FALSE(profile->getTaskAllow() || profile->provisionsAllDevices() ||
                 profile->hasWildcardsInBundleIdentifier());
    EXPECT_THAT(profile->developerCertificates(), IsEmpty());
    EXPECT_THAT(profile->provisionedDevices(), IsEmpty());
    EXPECT_EQ(profile->applicationIdentifierPrefixWildCard(), "(null).*");
    EXPECT_TRUE(profile->matchesBundleIdentifier("com.example.app"));
    EXPECT_THAT(profile->description(), EndsWith("> (null) (null)"));
  }
}

TEST_F(QVTProvisioningProfileTest, UnreadableFilesGiveNoProfile) {
  const auto logOfReading = [](const std::optional<std::string>& path) {
    return logOf([&] { EXPECT_FALSE(QVTProvisioningProfile::initWithPath(path)); });
  };
  EXPECT_EQ(logOfReading(std::nullopt), "");
  EXPECT_EQ(logOfReading(folder_ / "missing"), "");
  EXPECT_THAT(logOfReading(folder_.path()), HasSubstr(folder_.path().string()));
  EXPECT_EQ(logOfReading(folder_.write("noise", "noise")), "");
  const std::string broken = "<?xml version=\"1.0\"?><plist><dict><key></plist>";
  EXPECT_THAT(logOfReading(folder_.write("broken", makeSignedMessage(broken, signer_).text())),
              HasSubstr("Error serializing provision data Error Domain="));
  auto emptyPrefixes = ProfileOptions{}.dictionary();
  emptyPrefixes["ApplicationIdentifierPrefix"] = Array();
  EXPECT_FALSE(read(emptyPrefixes));
}

TEST_F(QVTProvisioningProfileTest, FirstCertificateWithItsKeyIsChosen) {
  const auto first = makeLeaf(signer_, {.commonName = "With Key"});
  const auto second = makeLeaf(signer_, {.commonName = "With Key Too"});
  const auto keychain = folder_.write("login.pem", first.keyPEM() + second.keyPEM()).string();
  fs::permissions(keychain, fs::perms::owner_all);
  ProfileOptions options;
  options.developerCertificates = {signer_.der(), first.der(), second.der()};
  const auto path = write("several.mobileprovision", options.dictionary());

  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(path, keychain);
  const auto chosen = profile->certWithPrivateKeyAvailable();
  ASSERT_TRUE(chosen);
  EXPECT_EQ(chosen, profile->developerCertificates()[1]);
  EXPECT_EQ(chosen->keychainPath(), keychain);
  EXPECT_EQ(profile->certForCodeSignIdentity(second.sha1()), profile->developerCertificates()[2]);
  EXPECT_FALSE(profile->certForCodeSignIdentity(std::string(40, '0')));

  std::optional<Error> error;
  EXPECT_FALSE(
      QVTProvisioningProfile::initWithPath(path)->certWithPrivateKeyAvailableOrError(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "QVTProvisioningProfileErrorDomain");
  EXPECT_EQ(error->code, -1);
  EXPECT_EQ(error->userInfo, (Dictionary{{"SourcePath", path},
                                         {"Details", "Profile Signer\nWith Key\nWith Key Too\n"}}));
}

TEST_F(QVTProvisioningProfileTest, IdentifiersMatchComponentByComponent) {
  using Identifier = std::optional<std::string>;
  const std::tuple<std::string, Identifier, bool> cases[] = {
      {"com.example.app", "com.example.app", true},
      {"com.example.app", "com.example.App", false},
      {"com.example", "com.example.app", true},
      {"com.example.app", "com.example", false},
      {"com.example.*", "com.example.app.extension", true},
      {"com.example.*", "com.example", true},
      {"com.*.app", "com.other.app", true},
      {"com.*.app", "com.other.tool", false},
      {"com.ex*", "com.example", false},
      {"*", "", true},
      {"*", std::nullopt, true},
      {"com", std::nullopt, false}};
  for (const auto& [own, given, matches] : cases) {
    const auto profile = read(ProfileOptions{.bundleIdentifier = own}.dictionary());
    EXPECT_EQ(profile->matchesBundleIdentifier(given), matches) << own << given.value_or(" none");
  }
}

TEST_F(QVTProvisioningProfileTest, NewestInstalledSuccessorIsFound) {
  const auto profile = read(ProfileOptions{.uuid = "OWN"}.dictionary());
  EXPECT_FALSE(profile->findNewerMatchForProvisioningProfile()) << "no folder of profiles";
  install("same-age.mobileprovision", {.uuid = "1"});
  install("own.mobileprovision", {.uuid = "OWN"}, 9);
  install("renamed.mobileprovision", {.name = "Other", .uuid = "2"}, 9);
  install("other-app.mobileprovision", {.uuid = "3", .bundleIdentifier = "com.example.b"}, 9);
  install("mac.provisionprofile", {.uuid = "4"}, 9);
  const auto folder =
      fs::path(install("backup.mobileprovision.old", {.uuid = "5"}, 9)).parent_path();
  writeFile(folder / "broken.mobileprovision", "nothing");
  EXPECT_THAT(QVTProvisioningProfile::profileDirectories(), ElementsAre(folder.string()));
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
  EXPECT_FALSE(QVTProvisioningProfile::mobileProfileWithUUID(std::nullopt));
}

}  // namespace

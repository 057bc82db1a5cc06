#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing/QVTProvisioningProfile.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Array;
using foundation::Data;
using foundation::Dictionary;
using test::ProfileOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr const char* kInstalled = "Library/MobileDevice/Provisioning Profiles/";

class QVTProvisioningProfileTest : public testing::Test {
 protected:
  std::string write(const std::string& name, const ProfileOptions& options) const {
    return write(name, options.dictionary());
  }
  std::string write(const std::string& name, const Dictionary& dictionary) const {
    return folder_.write(name, test::makeProvisioningProfile(dictionary, signer_).text());
  }
  std::shared_ptr<QVTProvisioningProfile> read(const Dictionary& dictionary) const {
    return QVTProvisioningProfile::initWithPath(write("read.mobileprovision", dictionary));
  }
  std::shared_ptr<QVTProvisioningProfile> readBytes(std::string_view bytes) const {
    return QVTProvisioningProfile::initWithPath(folder_.write("bytes.mobileprovision", bytes));
  }
  std::string message(std::string_view content) const {
    return std::string(test::makeSignedMessage(content, signer_).text());
  }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  test::MadeIdentity signer_ = test::makeRoot("Profile Signer");
};

std::string plistWithName(std::string_view name) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
         "<key>Name</key><string>" +
         std::string(name) + "</string></dict></plist>\n";
}

TEST_F(QVTProvisioningProfileTest, EveryFieldIsRead) {
  ProfileOptions options{.name = "Verteilung für Köln",
                         .developerCertificates = {signer_.der(), Data(std::string("junk"))},
                         .provisionedDevices = std::vector<std::string>{"d2", "d1", "d2"},
                         .getTaskAllow = true};
  const auto path = write("a.mobileprovision", options);
  const auto profile = QVTProvisioningProfile::initWithPath(path);
  ASSERT_TRUE(profile);
  EXPECT_EQ(profile->path(), path);
  EXPECT_THAT(profile->name(), Optional(options.name));
  EXPECT_THAT(profile->UUID(), Optional(options.uuid));
  EXPECT_THAT(profile->bundleIdentifierWithAppIdPrefix(),
              Optional(std::string("ABCDE12345.com.example.app")));
  EXPECT_THAT(profile->bundleIdentifier(), Optional(std::string("com.example.app")));
  EXPECT_THAT(profile->applicationIdentifierPrefix(), Optional(std::string("ABCDE12345")));
  EXPECT_EQ(profile->applicationIdentifierPrefixWildCard(), "ABCDE12345.*");
  EXPECT_THAT(profile->creationDate(), Optional(options.creationDate));
  EXPECT_THAT(profile->expirationDate(), Optional(options.expirationDate));
  EXPECT_THAT(profile->provisionedDevices(), UnorderedElementsAre("d1", "d2"));
  EXPECT_TRUE(profile->getTaskAllow());
  EXPECT_FALSE(profile->provisionsAllDevices());
  EXPECT_TRUE(profile->mobile());
  EXPECT_FALSE(profile->hasWildcardsInBundleIdentifier());
  ASSERT_EQ(profile->developerCertificates().size(), 1u) << "what is no certificate is left out";
  EXPECT_THAT(profile->developerCertificates()[0]->commonName(),
              Optional(std::string("Profile Signer")));
  EXPECT_THAT(profile->description(), StartsWith("<QVTProvisioningProfile: 0x"));
  EXPECT_THAT(profile->description(), HasSubstr("> Verteilung für Köln com.example.app"));
}

TEST_F(QVTProvisioningProfileTest, KindsOfProfileDiffer) {
  const auto store = read(ProfileOptions{}.dictionary());
  EXPECT_TRUE(store->provisionedDevices().empty());
  EXPECT_TRUE(store->developerCertificates().empty());
  const auto enterprise = read(ProfileOptions{.provisionsAllDevices = true}.dictionary());
  EXPECT_TRUE(enterprise->provisionsAllDevices());
  const auto wildcard = read(ProfileOptions{.bundleIdentifier = "*"}.dictionary());
  EXPECT_THAT(wildcard->bundleIdentifier(), Optional(std::string("*")));
  EXPECT_TRUE(wildcard->hasWildcardsInBundleIdentifier());
  const auto mac = QVTProvisioningProfile::initWithPath(write("m.provisionprofile", Dictionary()));
  ASSERT_TRUE(mac);
  EXPECT_FALSE(mac->mobile());
}

TEST_F(QVTProvisioningProfileTest, PrefixIsTakenOutWhereverItStands) {
  auto dictionary = ProfileOptions{.prefix = "A", .bundleIdentifier = "A.x.A.A.y"}.dictionary();
  EXPECT_THAT(read(dictionary)->bundleIdentifier(), Optional(std::string("x.y")));
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
    EXPECT_TRUE(profile->developerCertificates().empty());
    EXPECT_TRUE(profile->provisionedDevices().empty());
    EXPECT_EQ(profile->applicationIdentifierPrefixWildCard(), "(null).*");
    EXPECT_TRUE(profile->matchesBundleIdentifier("com.example.app"));
    EXPECT_THAT(profile->description(), HasSubstr("> (null) (null)"));
  }
  auto flags = ProfileOptions{}.dictionary();
  flags["ProvisionsAllDevices"] = "YES";
  EXPECT_TRUE(read(flags)->provisionsAllDevices()) << "a text has a boolean reading";
}

TEST_F(QVTProvisioningProfileTest, UnreadableFilesGiveNoProfile) {
  const std::string plist = plistWithName("N");
  const std::string whole = message(plist);
  auto emptyPrefixes = ProfileOptions{}.dictionary();
  emptyPrefixes["ApplicationIdentifierPrefix"] = Array();
  const auto end = whole.rfind("</plist>");
  for (const auto& [name, bytes] : std::vector<std::pair<std::string, std::string>>{
           {"empty", ""},
           {"no property list", message("hello")},
           {"no end", message("<?xml version=\"1.0\"?><plist>")},
           {"no beginning", message("</plist>")},
           {"plain property list", plist},
           {"beginning closer to the start than the end's length", "1234567" + plist + "12345678"},
           {"ends before the slice does", whole.substr(0, end + 8)},
           {"end before the beginning", std::string(100, ' ') + "</plist><?xml?>"},
           {"list at the top", message("<?xml version=\"1.0\"?><plist><array/></plist>")},
           {"no prefix in the list",
            std::string(test::makeProvisioningProfile(emptyPrefixes, signer_).text())},
       }) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(readBytes(bytes));
  }
  EXPECT_FALSE(QVTProvisioningProfile::initWithPath((folder_ / "missing").string()));
  EXPECT_FALSE(QVTProvisioningProfile::initWithPath(folder_.path().string()));
  EXPECT_FALSE(QVTProvisioningProfile::initWithPath(std::nullopt));
}

TEST_F(QVTProvisioningProfileTest, DamagedPropertyListIsLogged) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(readBytes(message("<?xml version=\"1.0\"?><plist><dict><key></plist>")));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Error serializing provision data Error Domain="));
}

TEST_F(QVTProvisioningProfileTest, LastPropertyListOfTheFileCounts) {
  const std::string padding(2000, '\xe9');
  const auto profile =
      readBytes(message(plistWithName("outer")) + message(plistWithName("inner")) + padding);
  ASSERT_TRUE(profile);
  EXPECT_THAT(profile->name(), Optional(std::string("inner")));
  EXPECT_FALSE(readBytes(message(plistWithName("outer")) + plistWithName("inner")))
      << "the slice would run past the end";
}

// Newer profiles hold themselves a second time, as a message inside the property list.
TEST_F(QVTProvisioningProfileTest, AMessageInsideThePropertyListIsOnlyData) {
  Dictionary dictionary = ProfileOptions{.name = "outer"}.dictionary();
  dictionary["DER-Encoded-Profile"] =
      test::makeProvisioningProfile(ProfileOptions{.name = "inner"}.dictionary(), signer_);
  const auto profile = read(dictionary);
  ASSERT_TRUE(profile);
  EXPECT_THAT(profile->name(), Optional(std::string("outer")));
}

TEST_F(QVTProvisioningProfileTest, FirstCertificateWithItsKeyIsChosen) {
  const auto family = test::makeFamily({.commonName = "With Key"});
  const auto second = test::makeLeaf(family.root, {.commonName = "With Key Too"});
  const auto keychain = folder_.write("login.pem", family.leaf.keyPEM() + second.keyPEM()).string();
  std::filesystem::permissions(keychain, std::filesystem::perms::owner_all);
  const ProfileOptions options{.developerCertificates = {test::makeRoot("Without Key").der(),
                                                         family.leaf.der(), second.der()}};
  const auto path = write("several.mobileprovision", options);

  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(path, keychain);
  const auto chosen = profile->certWithPrivateKeyAvailable();
  ASSERT_TRUE(chosen);
  EXPECT_EQ(chosen, profile->developerCertificates()[1]);
  EXPECT_THAT(chosen->keychainPath(), Optional(keychain));
  EXPECT_EQ(profile->certForCodeSignIdentity(second.sha1()), profile->developerCertificates()[2]);
  EXPECT_FALSE(profile->certForCodeSignIdentity(std::string(40, '0')));
  EXPECT_FALSE(profile->certForCodeSignIdentity(std::nullopt));

  const auto keyless = QVTProvisioningProfile::initWithPath(path);
  std::optional<foundation::Error> error;
  EXPECT_FALSE(keyless->certWithPrivateKeyAvailableOrError(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "QVTProvisioningProfileErrorDomain");
  EXPECT_EQ(error->code, -1);
  EXPECT_EQ(error->userInfo, (Dictionary{{"SourcePath", path},
                                         {"Details", "Without Key\nWith Key\nWith Key Too\n"}}));
}

TEST_F(QVTProvisioningProfileTest, IdentifiersMatchComponentByComponent) {
  struct Case {
    std::string own;
    std::optional<std::string> given;
    bool matches;
  };
  for (const auto& c : std::vector<Case>{{"com.example.app", "com.example.app", true},
                                         {"com.example.app", "com.example.App", false},
                                         {"com.example", "com.example.app", true},
                                         {"com.example.app", "com.example", false},
                                         {"com.example.*", "com.example.app.extension", true},
                                         {"com.example.*", "com.example", true},
                                         {"com.*.app", "com.other.app", true},
                                         {"com.*.app", "com.other.tool", false},
                                         {"com.ex*", "com.example", false},
                                         {"*", "com.example.app", true},
                                         {"*", "", true},
                                         {"*", std::nullopt, true},
                                         {"com", std::nullopt, false}}) {
    SCOPED_TRACE(c.own + " and " + c.given.value_or("none"));
    const auto profile = read(ProfileOptions{.bundleIdentifier = c.own}.dictionary());
    EXPECT_EQ(profile->matchesBundleIdentifier(c.given), c.matches);
  }
}

TEST_F(QVTProvisioningProfileTest, NewestInstalledSuccessorIsFound) {
  const ProfileOptions own{.uuid = "OWN"};
  const auto profile = read(own.dictionary());
  EXPECT_FALSE(profile->findNewerMatchForProvisioningProfile()) << "no folder of profiles";
  const auto install = [&](const std::string& name, ProfileOptions options, int days) {
    options.creationDate += std::chrono::hours(24 * days);
    write(kInstalled + name, options);
  };
  install("same-age.mobileprovision", {.uuid = "1"}, 0);
  install("own.mobileprovision", {.uuid = "OWN"}, 9);
  install("renamed.mobileprovision", {.name = "Other", .uuid = "2"}, 9);
  install("other-app.mobileprovision", {.uuid = "3", .bundleIdentifier = "com.example.b"}, 9);
  install("mac.provisionprofile", {.uuid = "4"}, 9);
  install("backup.mobileprovision.old", {.uuid = "5"}, 9);
  folder_.write(std::string(kInstalled) + "broken.mobileprovision", "nothing");
  EXPECT_EQ(QVTProvisioningProfile::installedProfiles().size(), 5u);
  EXPECT_FALSE(profile->findNewerMatchForProvisioningProfile());

  install("newer.mobileprovision", {.uuid = "NEWER"}, 1);
  install("newest.mobileprovision", {.uuid = "NEWEST"}, 3);
  install("new.mobileprovision", {.uuid = "NEW"}, 2);
  const auto found = profile->findNewerMatchForProvisioningProfile();
  ASSERT_TRUE(found);
  EXPECT_THAT(found->UUID(), Optional(std::string("NEWEST")));
}

TEST_F(QVTProvisioningProfileTest, InstalledProfileIsFoundByItsUUID) {
  write(std::string(kInstalled) + "U-1.mobileprovision", ProfileOptions{.uuid = "U-1"});
  ASSERT_TRUE(QVTProvisioningProfile::mobileProfileWithUUID("U-1"));
  EXPECT_FALSE(QVTProvisioningProfile::mobileProfileWithUUID("U-2"));
  EXPECT_FALSE(QVTProvisioningProfile::mobileProfileWithUUID(std::nullopt));
  EXPECT_THAT(QVTProvisioningProfile::profileDirectories(),
              ElementsAre((folder_ / "Library/MobileDevice/Provisioning Profiles").string()));
}

TEST_F(QVTProvisioningProfileTest, CopyLacksOnlyTheUUID) {
  const auto profile = read(ProfileOptions{.developerCertificates = {signer_.der()},
                                           .provisionedDevices = std::vector<std::string>{"d1"},
                                           .provisionsAllDevices = true,
                                           .getTaskAllow = true}
                                .dictionary());
  const auto copy = profile->copyWithZone();
  EXPECT_EQ(copy->UUID(), std::nullopt);
  EXPECT_THAT(profile->UUID(), Optional(std::string("11111111-2222-3333-4444-555555555555")));
  const auto fields = [](const QVTProvisioningProfile& p) {
    return std::tuple(p.path(), p.developerCertificates(), p.bundleIdentifier(),
                      p.bundleIdentifierWithAppIdPrefix(), p.getTaskAllow(), p.mobile(),
                      p.expirationDate(), p.name(), p.provisionedDevices(),
                      p.applicationIdentifierPrefix(), p.applicationIdentifierPrefixWildCard(),
                      p.provisionsAllDevices(), p.creationDate());
  };
  EXPECT_EQ(fields(*copy), fields(*profile));
}

}  // namespace

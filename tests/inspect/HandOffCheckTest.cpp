#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Format.h"
#include "foundation/format/PropertyList.h"
#include "inspect/AppSource.h"
#include "inspect/EntitlementGrants.h"
#include "inspect/HandOffCheck.h"
#include "signing/QVTProvisioningProfile.h"
#include "tests/inspect/InspectRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "toolchain/sign/Signing.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

/// A signed app with its key at hand: nothing stands in the way of its hand-off.
class HandOff : public testing::Test {
 protected:
  void SetUp() override {
    const char* const path = std::getenv("PATH");
    path_.emplace("PATH", (std::string(path ? path : "") + ":" SENDOFF_LIBEXEC).c_str());
    keychain_ = test::writeKeychain(folder_ / "keys.pem");
  }
  fs::path makeApp(const test::AppOptions& options = {}) {
    return test::makeApp(folder_ / "app", options);
  }
  /// With these entitlements; they make the signature.
  void sign(const fs::path& code, const Dictionary& entitlements = {}) {
    const auto xml = foundation::PropertyList::xml(Value(entitlements));
    const auto signedCode = toolchain::sign({.code = code,
                                             .identity = test::signingFamily().leaf.sha1(),
                                             .keychain = keychain_,
                                             .entitlements = folder_.write("entitlements", *xml),
                                             .force = true});
    ASSERT_TRUE(signedCode) << signedCode.error().localizedDescription();
  }
  /// Puts the example profile with this change into the app.
  void changeProfile(const fs::path& app, const std::function<void(Dictionary&)>& change) {
    auto profile = test::AppOptions::exampleProfile().dictionary();
    profile["DeveloperCertificates"] = Array{test::signingFamily().leaf.der()};
    change(profile);
    folder_.write(app / "embedded.mobileprovision",
                  test::makeProvisioningProfile(profile, test::signingFamily().leaf).text());
  }
  inspect::Outcome check(const fs::path& app, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"check", app, "--keychain", keychain_};
    words.insert(words.end(), more.begin(), more.end());
    return test::inspectRun(words);
  }

  test::TemporaryFolder folder_;
  std::optional<test::ScopedEnvironment> path_;
  fs::path keychain_;
};

TEST_F(HandOff, NothingIsFoundInASoundApp) {
  const auto app = makeApp();
  sign(app,
       {{"application-identifier", "ABCDE12345.com.example.app"}, {"beta-reports-active", true}});
  const auto outcome = check(app);
  EXPECT_EQ(outcome.standardOutput, "Nothing found that would stop this hand-off.\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(HandOff, TheProgramFindsTheSigningToolsBesideIt) {
  const auto app = makeApp();
  sign(app);
  EXPECT_EQ(test::outputOf({"/usr/bin/env", "PATH=/usr/bin:/bin", SENDOFF_INSPECT, "check", app,
                            "--keychain", keychain_}),
            "Nothing found that would stop this hand-off.\n");
}

struct Flaw {
  std::string finding;
  int status;
  std::function<void(test::AppOptions&)> change;
};

TEST_F(HandOff, FlawsOfAnAppAreNamedWithAdvice) {
  const auto now = foundation::currentDate();
  for (const auto& flaw : {
           Flaw{"warning: Info.plist has no CFBundleVersion: ", 3,
                [](auto& o) { o.info["CFBundleVersion"] = Value(); }},
           Flaw{"failure: Info.plist's CFBundleVersion is of type __NSCFNumber: ", 1,
                [](auto& o) { o.info["CFBundleVersion"] = 42; }},
           Flaw{"failure: the profile is for com.example.other, the app is com.example.app: ", 1,
                [](auto& o) {
                  o.info["CFBundleIdentifier"] = "com.example.app";
                  o.profile.bundleIdentifier = "com.example.other";
                }},
           Flaw{"failure: the provisioning profile expired on 2015-04-01: ", 1,
                [](auto& o) {
                  o.profile.expirationDate = std::chrono::sys_days{std::chrono::year{2015} / 4 / 1};
                }},
           Flaw{"failure: the profile names no devices, so nobody can install the app: ", 1,
                [](auto& o) { o.profile.provisionedDevices.reset(); }},
           Flaw{"failure: the profile is for development (get-task-allow), not for testers: ", 1,
                [](auto& o) { o.profile.getTaskAllow = true; }},
           Flaw{"warning: the provisioning profile expires on ", 3,
                [now](auto& o) { o.profile.expirationDate = now + std::chrono::days(3); }},
           Flaw{"failure: no certificate of the profile has its private key in the keychain: ", 1,
                [](auto& o) { o.profile.developerCertificates = {test::makeFamily().leaf.der()}; }},
           Flaw{"warning: Info.plist's CFBundleShortVersionString is empty: ", 3,
                [](auto& o) { o.info["CFBundleShortVersionString"] = ""; }},
           Flaw{"failure: Info.plist has no CFBundleIdentifier of type string: ", 1,
                [](auto& o) { o.info["CFBundleIdentifier"] = Array{"com.example.app"}; }},
           Flaw{"failure: the bundle identifier com.victim/.. cannot be part of a request to the "
                "service: ",
                1, [](auto& o) { o.info["CFBundleIdentifier"] = "com.victim/.."; }},
           Flaw{"failure: the app has no executable (CFBundleExecutable): ", 1,
                [](auto& o) { o.info["CFBundleExecutable"] = Value(); }},
       }) {
    SCOPED_TRACE(flaw.finding);
    test::AppOptions options;
    flaw.change(options);
    const auto app = makeApp(options);
    const auto outcome = check(app);
    EXPECT_THAT(outcome.standardOutput, HasSubstr(flaw.finding));
    EXPECT_EQ(outcome.status, flaw.status) << outcome.standardOutput;
    fs::remove_all(folder_ / "app");
  }
}

TEST_F(HandOff, TheCauseOfAMissingKeyIsNamed) {
  const auto app = makeApp();
  EXPECT_THAT(check(app, {"--keychain", folder_ / "missing.p12"}).standardOutput,
              testing::ContainsRegex("failure: no certificate of the profile has its private key "
                                     "in the keychain: .*/missing.p12: No such file"));
}

TEST_F(HandOff, AnEnterpriseProfileNeedsNoDevices) {
  test::AppOptions options;
  options.profile.provisionedDevices.reset();
  options.profile.provisionsAllDevices = true;
  EXPECT_EQ(check(makeApp(options)).status, 0);
}

TEST_F(HandOff, TheKeychainIsThatOfARun) {
  const auto app = makeApp();
  const test::ScopedEnvironment home("HOME", folder_.path().c_str());
  EXPECT_EQ(test::inspectRun({"check", app}).status, 1);
  const test::ScopedEnvironment keychain("CODE_SIGN_KEYCHAIN", keychain_.c_str());
  EXPECT_EQ(test::inspectRun({"check", app}).status, 0);

  // Without the issuers codesign fails; it looks for them in the default list too.
  const auto& family = test::signingFamily();
  const auto alone =
      folder_.write("alone.pem", family.leaf.keyPEM() + family.leaf.certificatePEM());
  EXPECT_THAT(
      check(app, {"--keychain", alone}).standardOutput,
      testing::ContainsRegex("^failure: signing will fail: the certificate \"iPhone "
                             "Distribution: .* no certificate of that issuer is at hand: "));
  folder_.write("Library/Keychains/issuers.pem",
                family.intermediate.certificatePEM() + family.root.certificatePEM());
  EXPECT_EQ(check(app, {"--keychain", alone}).status, 0);
}

TEST_F(HandOff, WhatIsNoAppForDevicesIsNamed) {
  const auto mac = folder_ / "Mac.app";
  folder_.write("Mac.app/Contents/Info.plist", "<plist><dict/></plist>");
  fs::create_directories(folder_ / "Kit.xcframework");
  fs::create_directories(folder_ / "Kit.xcarchive/Products/Library/Frameworks/Kit.framework");
  fs::create_directories(folder_ / "in");
  fs::copy(mac, folder_ / "in/Mac.app", fs::copy_options::recursive);
  const auto simulator = test::makeApp(
      folder_ / "simulator", {.info = {{"CFBundleSupportedPlatforms", Array{"iPhoneSimulator"}}}});
  const auto intel = test::makeApp(folder_ / "intel");
  test::linkImage(intel / "Example", {.architecture = "x86_64"});
  const struct {
    fs::path path;
    std::string what;
  } cases[] = {
      {folder_.write("App.apk", "PK"), "an Android app (.apk)"},
      {folder_ / "Kit.xcframework", "a library (.xcframework), not an app"},
      {folder_ / "Kit.xcarchive", "the archive of a library, not of an app"},
      {mac, "a macOS app"},
      {test::packIPA(folder_ / "in/Mac.app", folder_ / "Mac.ipa"), "a macOS app"},
      {test::makeArchive(folder_ / "Mac.xcarchive", folder_ / "in/Mac.app").parent_path(),
       "a macOS app"},
      {simulator, "a build for the simulator"},
      {intel, "a build for the simulator"},
  };
  for (const auto& c : cases) {
    const auto outcome = check(c.path);
    EXPECT_EQ(outcome.status, 1) << c.path;
    EXPECT_THAT(outcome.standardOutput, testing::StartsWith("failure: this is " + c.what + ": "))
        << c.path << outcome.standardError;
  }
}

TEST_F(HandOff, CertificatesThatExpireOrHave) {
  struct Row {
    std::chrono::hours validUntil;
    std::string finding;
    int status;
  };
  for (const auto& row : {
           Row{std::chrono::hours(24 * 5), "warning: the signing certificate expires on ", 3},
           Row{std::chrono::hours(-1), "failure: the signing certificate expired on ", 1},
       }) {
    const auto family = test::makeFamily({.validUntil = row.validUntil});
    keychain_ = test::writeKeychain(folder_ / "short.pem", family);
    test::AppOptions options;
    options.profile.developerCertificates = {family.leaf.der()};
    const auto outcome = check(makeApp(options));
    EXPECT_THAT(outcome.standardOutput, HasSubstr(row.finding));
    EXPECT_EQ(outcome.status, row.status);
    fs::remove_all(folder_ / "app");
  }
}

TEST_F(HandOff, MissingProfileAndExecutableThatCannotBeReleased) {
  const auto app = makeApp();
  const auto executable = app / "Example";
  ASSERT_TRUE(fs::exists(executable));
  fs::remove(app / "embedded.mobileprovision");
  folder_.write(executable,
                test::MachOImage::arm64().encryption(1).segment("__TEXT", 0, 0x4000).bytes());
  const auto outcome = check(app);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.standardOutput,
              HasSubstr("failure: no provisioning profile can be read at "));
  EXPECT_THAT(outcome.standardOutput, HasSubstr("slice arm64 of the executable has no UUID"));
  EXPECT_THAT(outcome.standardOutput, HasSubstr("the executable is encrypted"));
}

TEST_F(HandOff, EntitlementsBeyondTheProfile) {
  const auto app = makeApp();
  sign(app, {{"application-identifier", "ABCDE12345.com.example.app"},
             {"get-task-allow", true},
             {"aps-environment", "production"}});
  const auto outcome = check(app);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.standardOutput,
              HasSubstr("the app's entitlement get-task-allow = 1 is not granted"));
  EXPECT_THAT(outcome.standardOutput,
              HasSubstr("the app's entitlement aps-environment = production is not granted"));
}

TEST_F(HandOff, EntitlementsThatAreSwitchedOffNeedNoGrant) {
  const auto app = makeApp();
  sign(app, {{"application-identifier", "ABCDE12345.com.example.app"}, {"inter-app-audio", false}});
  EXPECT_EQ(check(app).status, 0) << check(app).standardOutput;

  // A profile without any grants nothing else.
  changeProfile(app, [](Dictionary& profile) { profile.erase("Entitlements"); });
  EXPECT_THAT(check(app).standardOutput,
              HasSubstr("the app's entitlement application-identifier = "));
  EXPECT_THAT(check(app).standardOutput, Not(HasSubstr("inter-app-audio")));
}

TEST_F(HandOff, NestedCodeUnsignedOrOfAnotherTeam) {
  const auto app = makeApp();
  fs::create_directories(app / "Frameworks");
  test::linkImage(folder_ / "lib", {.linkerArguments = {"-dylib"}});
  fs::copy(folder_ / "lib", app / "Frameworks/libplain.dylib");
  sign(app);  // signs the library on the way
  EXPECT_EQ(check(app).status, 0) << check(app).standardOutput;
  // The identifier prefix of an old account is not its team.
  changeProfile(app, [](Dictionary& profile) {
    profile["ApplicationIdentifierPrefix"] = Array{"OLDPREFIX1"};
  });
  EXPECT_THAT(check(app).standardOutput, Not(HasSubstr("nested code")));

  const auto stranger = test::makeFamily({.organizationalUnit = "ZZZZZ99999"});
  const auto keys = test::writeKeychain(folder_ / "stranger.pem", stranger);
  fs::copy(folder_ / "lib", app / "Frameworks/libother.dylib");
  ASSERT_TRUE(toolchain::sign({.code = app / "Frameworks/libother.dylib",
                               .identity = stranger.leaf.sha1(),
                               .keychain = keys,
                               .force = true}));
  fs::copy(folder_ / "lib", app / "Frameworks/libunsigned.dylib");
  const auto outcome = check(app);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.standardOutput,
              HasSubstr("failure: nested code Frameworks/libother.dylib is signed under team "
                        "ZZZZZ99999, the profile is for ABCDE12345"));
  EXPECT_THAT(outcome.standardOutput,
              HasSubstr("warning: nested code Frameworks/libunsigned.dylib is not signed"));
}

/// Its roots cannot be made at home: one that only has the name stands in for them.
TEST_F(HandOff, NestedCodeOfTheVendorsOwnIsFineAsItIs) {
  const auto app = makeApp();
  const auto root = test::makeRoot("Apple Root CA");
  const auto issuer = test::makeCrossSigned(test::makeRoot("Apple Code Signing"), root);
  const test::Family own{test::makeLeaf(issuer, {.commonName = "Software Signing",
                                                 .organizationalUnit = "59GAB85EFG"}),
                         issuer, root};
  fs::create_directories(app / "Frameworks");
  test::linkImage(app / "Frameworks/libswiftCore.dylib", {.linkerArguments = {"-dylib"}});
  ASSERT_TRUE(toolchain::sign({.code = app / "Frameworks/libswiftCore.dylib",
                               .identity = own.leaf.sha1(),
                               .keychain = test::writeKeychain(folder_ / "own.pem", own),
                               .force = true}));
  const auto source = inspect::AppSource::open(app);
  ASSERT_TRUE(source);
  const auto profile =
      QVTProvisioningProfile::initWithPath((app / "embedded.mobileprovision").string());
  inspect::HandOff handOff{.resource = source->resource(), .profile = profile.get()};
  ASSERT_EQ(inspect::checkNestedCode(handOff).size(), 1u);
  EXPECT_THAT(inspect::checkNestedCode(handOff)[0].problem, HasSubstr("team 59GAB85EFG"));
  handOff.isAppleRoot = toolchain::isNamedLikeAppleRoot;
  EXPECT_TRUE(inspect::checkNestedCode(handOff).empty());
}

TEST_F(HandOff, SymbolsOfAnotherBuildAndMissingTools) {
  const auto app = makeApp();
  test::linkImage(folder_ / "Demo", {.compilerArguments = {"-g"}});
  test::makeDSYM(folder_ / "Demo", folder_ / "symbols/Demo.dSYM");
  EXPECT_THAT(check(app, {"--dsym", folder_ / "symbols"}).standardOutput,
              HasSubstr("warning: no symbols for slice arm64 ("));
  EXPECT_THAT(check(app, {"--dsym", folder_ / "app"}).standardOutput,
              HasSubstr("failure: no symbol bundle at "));

  fs::create_directories(folder_ / "empty");
  const test::ScopedEnvironment none("PATH", (folder_ / "empty").c_str());
  const auto outcome = check(app);
  EXPECT_THAT(outcome.standardOutput, HasSubstr("failure: zip is not in PATH: install it\n"));
  EXPECT_THAT(outcome.standardOutput, HasSubstr("failure: xcrun does not find codesign: "));
}

}  // namespace

// Whole runs that the service accepts.
#include <cstdlib>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/base/Text.h"
#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/OpenCount.h"
#include "tests/support/StandInService.h"
#include "tests/support/StandInSigner.h"
#include "tests/support/TLSCertificates.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr auto kAllCalls = {ServiceCall::validate, ServiceCall::notes, ServiceCall::testers,
                            ServiceCall::upload};

class RunTest : public testing::Test {
 protected:
  RunResult runIPA(const fs::path& ipa, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"-ipaPath", ipa, "-QuorvantileAPIEndpoint", service_.url()});
    return place_.run(more);
  }
  RunResult runIPA(const AppOptions& app, const std::vector<std::string>& more = {}) {
    return runIPA(packIPA(makeApp(place_.files(), app), place_.files() / "Example.ipa"), more);
  }
  /// The field's only value in the upload.
  std::string uploaded(const std::string& name) {
    const auto values = valuesOf(service_.form(ServiceCall::upload), name);
    return values.size() == 1 ? values[0] : "(" + std::to_string(values.size()) + " values)";
  }

  StandInService service_{{.apiKey = kKey, .buildSecret = kSecret}};
  Workplace place_;
};

/// A host of this build, as a proxy is asked for it: "NAME:443".
std::string authorityOf(const std::string& url) {
  return url.substr(std::string_view("https://").size()) + ":443";
}

TEST_F(RunTest, GoesToTheDefaultHostsEachForItsCalls) {
  const std::string api = authorityOf(SENDOFF_API), upload = authorityOf(SENDOFF_UPLOAD);
  EXPECT_THAT(api, Not(HasSubstr("distribution")));
  const TLSAuthority authority;
  std::ofstream(place_.files() / "authority.pem") << authority.certificate();
  // A proxy that is the end of its own tunnels.
  std::vector<std::string> tunnels;
  ServerOptions options;
  options.identity = authority.issue(
      {.hostName = "*" + api.substr(api.find('.'), api.rfind(':') - api.find('.'))});
  options.onConnection = [&](Peer& peer) {
    std::string head;
    for (std::string next = "?"; !head.ends_with("\r\n\r\n") && !next.empty(); head += next) {
      next = peer.receive(1);
    }
    tunnels.push_back(head.substr(0, head.find("\r\n")));
    peer.send("HTTP/1.1 200 OK\r\n\r\n");
    return false;
  };
  const LoopbackServer proxy(alwaysAnswer(httpAnswer(202)), options);
  place_.environment()["https_proxy"] = "http://127.0.0.1:" + std::to_string(proxy.port());
  place_.environment()["SSL_CERT_FILE"] = place_.files() / "authority.pem";
  const auto ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
  EXPECT_EQ(place_.run({"-ipaPath", ipa}).status, 0);
  EXPECT_THAT(tunnels,
              ElementsAre("CONNECT " + api + " HTTP/1.1", "CONNECT " + upload + " HTTP/1.1"));
  ASSERT_EQ(proxy.requests().size(), 2u);
  EXPECT_THAT(proxy.requests()[0]->target, testing::EndsWith("/validate_project"));
  EXPECT_THAT(proxy.requests()[1]->target, testing::EndsWith("/distributions"));
}

TEST_F(RunTest, IPAWithNotesTestersAndGroups) {
  const std::string notes = "Größer, schneller\r\n--AaB03\n% done";
  const auto result = place_.run(
      {"-ipaPath", packIPA(signedApp(makeApp(place_.files())), place_.files() / "Example.ipa"),
       "-QuorvantileAPIEndpoint", service_.url(), "-notesPath", "/dev/stdin", "-emails",
       " a@x.org, b @y.org,", "-groupAliases", "alpha", "-help", "whatever"},
      [&] {
        int ends[2];
        if (::pipe(ends) != 0 || ::write(ends[1], notes.data(), notes.size()) < 0) ::_exit(1);
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[1]);
      });

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.messages(),
              ElementsAre("Quorvantile.framework/sendoff 1.3.6 (19)",
                          "Added Release Notes Successfully 200",
                          "Added Testers/Groups Successfully 200", "Uploaded Successfully 202"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(service_.complaints(), IsEmpty());
  EXPECT_THAT(service_.calls(), testing::ElementsAreArray(kAllCalls));
  EXPECT_THAT(
      service_.form(ServiceCall::notes),
      ElementsAre(field("app[display_version]", "2.5"), field("app[build_version]", "2.5.117"),
                  field("release_notes[body]", notes), field("release_notes[format]", "text")));
  EXPECT_THAT(
      service_.form(ServiceCall::testers),
      ElementsAre(field("app[display_version]", "2.5"), field("app[build_version]", "2.5.117"),
                  field("send_notifications", "false"), field("emails[]", "a@x.org"),
                  field("emails[]", "b@y.org"), field("emails[]", ""),
                  field("group_ids[]", "alpha")));
  EXPECT_EQ(uploaded("send_notifications"), "true");
  EXPECT_EQ(uploaded("distribution[platform_attributes][architectures]"), "armv7,arm64");
  // The app itself and the built .ipa are gone; the rest of the inflated archive stays on purpose.
  EXPECT_THAT(place_.leftovers(),
              ElementsAre("Example", "Example/Payload", "com.quorvantile.ipas",
                          "com.quorvantile.mac", "com.quorvantile.mac/distributions"));
}

TEST_F(RunTest, ArchiveNamedByTheEnvironment) {
  const fs::path archive = place_.files() / "Example.xcarchive";
  const fs::path products = makeArchive(archive, makeApp(place_.files()));
  const std::string before = outputOf(
      {"sh", "-c", "cd \"$1\" && find . -type f | sort | xargs md5sum", "sh", archive.string()});
  for (const std::string& variable : {products.string(), products.string() + "/"}) {
    SCOPED_TRACE(variable);
    place_.environment()["ARCHIVE_PRODUCTS_PATH"] = variable;
    const auto result = place_.run({"-QuorvantileAPIEndpoint", service_.url()});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.messages(), ElementsAre("Quorvantile.framework/sendoff 1.3.6 (19)",
                                               "Uploading archive at " + archive.string(),
                                               "Uploaded Successfully 202"));
  }
  EXPECT_THAT(service_.calls(), ElementsAre(ServiceCall::validate, ServiceCall::upload,
                                            ServiceCall::validate, ServiceCall::upload));
  EXPECT_THAT(service_.complaints(), IsEmpty());
  EXPECT_THAT(place_.leftovers(),
              ElementsAre("com.quorvantile.ipas", "com.quorvantile.mac", "com.quorvantile.mac/apps",
                          "com.quorvantile.mac/distributions"));
  EXPECT_EQ(outputOf({"sh", "-c", "cd \"$1\" && find . -type f | sort | xargs md5sum", "sh",
                      archive.string()}),
            before)
      << "the archive was changed";
}

TEST_F(RunTest, TheUploadedFileIsTheSignedApp) {
  const StandInSigner signer;
  place_.environment()["PATH"] = std::getenv("PATH");
  ASSERT_EQ(runIPA(AppOptions()).status, 0);
  const auto file = service_.form(ServiceCall::upload).back();
  const IPAFacts facts = factsOf(file.value);
  const auto calls = signer.calls();
  ASSERT_EQ(calls.size(), 4u);
  const auto& sign = calls[2];
  EXPECT_THAT(sign.arguments,
              testing::IsSupersetOf({std::string("--sign"), signingFamily().leaf.sha1()}));
  EXPECT_THAT(sign.environment,
              ElementsAre(testing::Pair("CODESIGN_ALLOCATE", signer.codesignAllocate().string())));
  EXPECT_EQ(sign.entitlements.find("beta-reports-active"), std::string::npos);
  EXPECT_NE(sign.infoPlist.find("QuorvantileSignedForDistribution"), std::string::npos);
  EXPECT_THAT(facts.names, Contains("Payload/Example.app/Icon@2x.png"));
  EXPECT_THAT(facts.names, Each(testing::StartsWith("Payload/")));
  EXPECT_THAT(facts.names, testing::Not(Contains(testing::HasSubstr("entitlements"))));
}

TEST_F(RunTest, AnAppThatWasSignedForDistributionIsSentAsItStands) {
  const StandInSigner signer;
  place_.environment()["PATH"] = std::getenv("PATH");
  AppOptions app;
  app.info = {{"QuorvantileSignedForDistribution", true}};
  EXPECT_EQ(runIPA(app).status, 0);
  EXPECT_THAT(signer.calls(), IsEmpty());
}

TEST_F(RunTest, UploadFieldsFollowAppProfileAndSwitches) {
  const foundation::Value null;
  struct Case {
    const char* name;
    foundation::Dictionary info;
    std::function<void(ProfileOptions&)> profile;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> expected;
  };
  const std::string attributes = "distribution[platform_attributes]";
  for (const Case& c : std::vector<Case>{
           {"notifications off",
            {},
            {},
            {"-notifications", "NO"},
            {{"send_notifications", "suppress"}}},
           {"notifications by number",
            {},
            {},
            {"-notifications", " +01"},
            {{"send_notifications", "true"}}},
           {"last pair wins",
            {},
            {},
            {"-notifications", "NO", "-notifications", "yes"},
            {{"send_notifications", "true"}}},
           {"enterprise",
            {},
            [](ProfileOptions& profile) {
              profile.provisionedDevices.reset();
              profile.provisionsAllDevices = true;
            },
            {},
            {{attributes + "[enterprise]", "true"},
             {"distribution[devices][][udid]", "(0 values)"}}},
           {"App Store",
            {},
            [](ProfileOptions& profile) { profile.provisionedDevices.reset(); },
            {},
            {{attributes + "[enterprise]", "false"},
             {"distribution[devices][][udid]", "(0 values)"}}},
           {"a device twice",
            {},
            [](ProfileOptions& profile) {
              profile.provisionedDevices = {{"aa", "aa"}};
            },
            {},
            {{"distribution[devices][][udid]", "aa"}}},
           {"several certificates, one with its key, and that twice",
            {},
            [](ProfileOptions& profile) {
              const auto stranger = makeLeaf(makeRoot("Others"), {.commonName = "No Key Here"});
              const auto own = signingFamily().leaf.der();
              profile.developerCertificates = {stranger.der(), own, own};
            },
            {},
            {{attributes + "[enterprise]", "false"}}},
           {"no versions, no family",
            {{"CFBundleShortVersionString", null},
             {"CFBundleVersion", null},
             {"MinimumOSVersion", null},
             {"UIDeviceFamily", null}},
            {},
            {},
            {{"app[display_version]", "(0 values)"},
             {"app[build_version]", "(0 values)"},
             {attributes + "[min_os]", "(0 values)"},
             {attributes + "[devices]", ""},
             {attributes + "[newsstand]", "false"}}},
           {"numbers are no text",
            {{"CFBundleShortVersionString", 2.5}, {"CFBundleVersion", 42}, {"MinimumOSVersion", 9}},
            {},
            {},
            {{"app[display_version]", "(0 values)"},
             {"app[build_version]", "(0 values)"},
             {attributes + "[min_os]", "(0 values)"}}},
           {"an empty version is text",
            {{"CFBundleVersion", ""}},
            {},
            {},
            {{"app[build_version]", ""}}},
           {"strange families",
            {{"UIDeviceFamily", foundation::Array{2, 3, "x", 1}}},
            {},
            {},
            {{attributes + "[devices]", "iPad,unknown,unknown,iPhone"}}},
           {"newsstand",
            {{"UINewsstandapp", true}},
            {},
            {},
            {{attributes + "[newsstand]", "true"}}},
           {"newsstand as text",
            {{"UINewsstandapp", "YES"}},
            {},
            {},
            {{attributes + "[newsstand]", "true"}}},
           {"newsstand spelt otherwise",
            {{"UINewsstandApp", true}},
            {},
            {},
            {{attributes + "[newsstand]", "false"}}},
       }) {
    SCOPED_TRACE(c.name);
    AppOptions app;
    app.folderName = std::string(c.name) + ".app";
    app.info = c.info;
    if (c.profile) c.profile(app.profile);
    const auto result = runIPA(app, c.arguments);
    EXPECT_EQ(result.status, 0) << result.output;
    for (const auto& [name, value] : c.expected) EXPECT_EQ(uploaded(name), value) << name;
  }
  EXPECT_THAT(service_.complaints(), IsEmpty());
}

TEST_F(RunTest, DebugSaysWhatItDoes) {
  const auto result = runIPA(AppOptions(), {"-debug", "YES"});
  EXPECT_EQ(result.status, 0);
  const std::string app = place_.temporary() / "Example/Payload/Example.app";
  EXPECT_THAT(
      result.messages(),
      ElementsAre("Quorvantile.framework/sendoff 1.3.6 (19)",
                  "Path to IPA manually provided: " + (place_.files() / "Example.ipa").string(),
                  "Path To App: " + app,
                  testing::MatchesRegex("Submitting IPA at .*/com.quorvantile.mac/distributions/"
                                        "[0-9A-F-]{36}\\.ipa"),
                  "Uploaded Successfully 202"));
}

TEST_F(RunTest, KeychainOfTheBuildEnvironment) {
  fs::rename(place_.home() / "Library/Keychains/identity.pem", place_.files() / "other.pem");
  place_.environment()["CODE_SIGN_KEYCHAIN"] = place_.files() / "other.pem";
  const auto result = runIPA(AppOptions());
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.errors,
              testing::ContainsRegex(" sendoff\\[[0-9]+\\] Using CODE_SIGN_KEYCHAIN: " +
                                     (place_.files() / "other.pem").string()));
  EXPECT_EQ(result.output.find("KEYCHAIN"), std::string::npos);
}

TEST_F(RunTest, WhatTheVerificationSaysIsLogged) {
  const auto logOf = [&](const fs::path& app) {
    const auto result = runIPA(packIPA(app, place_.files() / "Example.ipa"));
    EXPECT_EQ(result.status, 0) << "the run goes on";
    fs::remove(place_.files() / "Example.ipa");
    return result.errors;
  };
  const std::string says = "] Warning: the app as it came does not verify: ";
  const fs::path app = makeApp(place_.files());
  const std::string never = logOf(app);
  EXPECT_THAT(never, testing::ContainsRegex(
                         says + ".*/Example.app: code object is not signed at all[^\n]*\n$"));
  EXPECT_EQ(std::ranges::count(never, '\n'), 1);
  EXPECT_EQ(logOf(signedApp(app)), "");
  std::ofstream(app / "evil.js") << "alert()";
  const std::string tampered = logOf(app);
  EXPECT_THAT(tampered, AllOf(HasSubstr(says), HasSubstr("a sealed resource is missing or invalid"),
                              HasSubstr("file added: "), HasSubstr("Example.app/evil.js\n")));
  EXPECT_EQ(std::ranges::count(tampered, '\n'), 1);
}

TEST_F(RunTest, AForgedCertificateInTheProfileDoesNotSign) {
  const StandInSigner signer;
  place_.environment()["PATH"] = std::getenv("PATH");
  AppOptions app;
  const auto own = signingFamily().leaf;
  const auto forged = makeForged(own, makeIntermediate(makeRoot()), "Forged");
  app.profile.developerCertificates = {forged.der(), own.der()};
  EXPECT_EQ(runIPA(app).status, 0);
  EXPECT_THAT(signer.calls().at(2).arguments, Contains(own.sha1()));
}

TEST_F(RunTest, WhatNobodyCanInstallIsSentWithAWarningEach) {
  AppOptions app;
  app.profile.expirationDate = std::chrono::sys_days{std::chrono::year{2015} / 4 / 1};
  app.info = {{"CFBundleIdentifier", "com.example.app"}};
  app.profile.bundleIdentifier = "com.example.other";
  app.profile.provisionedDevices.reset();
  const auto result =
      runIPA(packIPA(signedApp(makeApp(place_.files(), app)), place_.files() / "Example.ipa"));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(foundation::split(result.errors, '\n'),
              ElementsAre(testing::HasSubstr("] Warning: the provisioning profile expired on "
                                             "2015-04-01: renew it"),
                          testing::HasSubstr("] Warning: the profile is for com.example.other, the "
                                             "app is com.example.app: "),
                          testing::HasSubstr("] Warning: the profile names no devices, so nobody "
                                             "can install the app: "),
                          ""));
}

TEST_F(RunTest, TheCauseOfAMissingKeyIsLogged) {
  place_.environment()["CODE_SIGN_KEYCHAIN"] = place_.files() / "missing.p12";
  const auto result = runIPA(AppOptions());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(
      result.messages(),
      Contains(testing::StartsWith("Unable to find a certificate with a private key: Error ")));
  EXPECT_THAT(result.errors,
              testing::HasSubstr("] Cannot sign: cannot open " +
                                 (place_.files() / "missing.p12").string() + ": No such file"));
}

TEST_F(RunTest, TheKeychainIsReadOnceForAllCertificatesOfTheProfile) {
  AppOptions app;
  app.profile.developerCertificates = {makeLeaf(makeRoot("Others")).der(),
                                       makeLeaf(makeRoot("More")).der(),
                                       signingFamily().leaf.der()};
  const OpenCount opens(place_.home() / "Library/Keychains/identity.pem");
  EXPECT_EQ(runIPA(app).status, 0);
  // By the tool, and by codesign when it signs.
  EXPECT_EQ(opens.take(), 2);
}

TEST_F(RunTest, WithoutABinaryTheRunGoesOnToTheUpload) {
  AppOptions app;
  app.info = {{"CFBundleExecutable", "Missing"}};
  const fs::path folder = makeApp(place_.files(), app);
  fs::remove(folder / "Missing");
  const auto result =
      runIPA(packIPA(folder, place_.files() / "Example.ipa"), {"-emails", "a@x.org"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.messages(),
              ElementsAre("Quorvantile.framework/sendoff 1.3.6 (19)",
                          "Unable to read Mach-O binary.", "Added Testers/Groups Successfully 200",
                          "Unable to load IPA at (null)", "Failed to upload binary"));
  EXPECT_THAT(service_.calls(), ElementsAre(ServiceCall::validate, ServiceCall::testers));
  EXPECT_THAT(service_.complaints(), IsEmpty());
  EXPECT_EQ(service_.server().requests().at(0)->target,
            "/spi/v1/platforms/ios/apps/com.example.app/releases/(null)/build_server/"
            "validate_project");
  EXPECT_THAT(place_.leftovers(), ElementsAre("Example", "Example/Payload"));
}

}  // namespace
}  // namespace test

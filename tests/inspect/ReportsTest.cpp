// The program's answers on real files, against tools of another make.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Text.h"
#include "tests/inspect/InspectRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/xcode/ArchiveFixture.h"

namespace {

using foundation::Value;
using test::at;
using test::textAt;
using testing::HasSubstr;
using testing::Not;

/// Architecture and UUID of each slice, as `slicesOf` reads them from LLVM.
std::vector<std::pair<std::string, std::string>> uuidsIn(const Value& document,
                                                         std::string_view key) {
  std::vector<std::pair<std::string, std::string>> result;
  for (const auto& entry : *at(document, key).array()) {
    result.emplace_back(textAt(entry, "architectureName"), textAt(entry, "uuid"));
  }
  return result;
}

TEST(InspectReports, MachOAgreesWithLLVM) {
  const auto document = test::inspectDocument({"macho", test::universalExecutable()});
  EXPECT_EQ(uuidsIn(document, "slices"), test::slicesOf(test::universalExecutable()));
  EXPECT_EQ(textAt(document, "instanceIdentifier").size(), 40u);
  const test::TemporaryFolder folder;
  test::linkImage(folder / "image",
                  {.minimumOS = "9.3.1", .sdk = "12.1", .dylibs = {"/usr/lib/libz.dylib"}});
  const auto image = test::inspectDocument({"macho", folder / "image"});
  EXPECT_EQ(textAt(image, "slices.0.minimumOSVersion"), "9.3.1");
  EXPECT_EQ(textAt(image, "slices.0.linkedSDKVersion"), "12.1.0");
  const auto otool = test::outputOf({test::llvmTool("llvm-otool"), "-L", folder / "image"});
  const auto& dylibs = *at(image, "slices.0.linkedDylibs").array();
  for (const auto& dylib : dylibs) {
    EXPECT_THAT(otool, HasSubstr("\t" + textAt(dylib, "path") + " ("));
    EXPECT_EQ(textAt(dylib, "kind"), "plain");
  }
  EXPECT_EQ(std::ranges::count(otool, '\t'), std::ssize(dylibs)) << otool;
  EXPECT_THAT(test::outputOf({test::llvmTool("llvm-otool"), "-l", folder / "image"}),
              testing::ContainsRegex("version 9.3.1\n +sdk 12.1\n"));
}

TEST(InspectReports, MachOOfTodayHasItsVersionsAndAllItsDylibs) {
  const test::TemporaryFolder folder;
  test::linkImage(folder / "image", {.minimumOS = "15.1", .sdk = "17.2.3"});
  const auto image = test::inspectDocument({"macho", folder / "image"});
  EXPECT_EQ(textAt(image, "slices.0.minimumOSVersion"), "15.1.0");
  EXPECT_EQ(textAt(image, "slices.0.linkedSDKVersion"), "17.2.3");

  const auto file = folder.write("built", test::MachOImage::arm64()
                                              .dylib("/plain")
                                              .dylib("/weak", macho::LC_LOAD_WEAK_DYLIB)
                                              .dylib("/again", macho::LC_REEXPORT_DYLIB)
                                              .dylib("/up", macho::LC_LOAD_UPWARD_DYLIB)
                                              .dylib("/lazy", macho::LC_LAZY_LOAD_DYLIB)
                                              .buildVersion(macho::PLATFORM_IOS, 0x100000, 0)
                                              .versionMin(macho::LC_VERSION_MIN_IPHONEOS, 1, 1)
                                              .bytes());
  EXPECT_EQ(test::inspectRun({"macho", file, "-v"}).standardOutput,
            "arm64\t-\t16.0.0\t-\t5\ninstanceIdentifier: -\n\narm64 links\n/plain\n/weak (weak)\n"
            "/again (re-exported)\n/up (upward)\n/lazy (lazy)\n");
}

TEST(InspectReports, WhatAFileDoesNotStateIsNull) {
  const test::TemporaryFolder folder;
  const auto file = folder.write("image", test::MachOImage::arm64().bytes());
  const auto image = test::inspectDocument({"macho", file});
  EXPECT_EQ(at(image, "slices.0.minimumOSVersion"), Value());
  EXPECT_EQ(at(image, "slices.0.linkedSDKVersion"), Value());
  const auto app = test::makeApp(folder.path(), {.info = {{"CFBundleIdentifier", Value()},
                                                          {"CFBundleShortVersionString", Value()},
                                                          {"CFBundleVersion", 7}}});
  std::filesystem::remove(app / "embedded.mobileprovision");
  folder.write("Example.app/Example", "#!/bin/sh\nexit 0\n");
  const auto document = test::inspectDocument({"app", app});
  for (const char* key : {"bundleIdentifier", "displayVersion", "buildVersion",
                          "provisioningProfilePath", "macho", "profile"}) {
    EXPECT_EQ(at(document, key), Value()) << key;
  }
}

TEST(InspectReports, MachOWithoutUUIDHasNoIdentifier) {
  const test::TemporaryFolder folder;
  const auto file = folder.write("image", test::MachOImage::arm64().dylib("/x").bytes());
  const auto document = test::inspectDocument({"macho", file});
  EXPECT_EQ(at(document, "instanceIdentifier"), Value());
  EXPECT_EQ(at(document, "slices.0.uuid"), Value());
  EXPECT_THAT(test::inspectRun({"macho", file, "-v"}).standardOutput,
              HasSubstr("arm64 links\n/x\n"));
}

TEST(InspectReports, NamesFromAppsCannotMoveTheCursor) {
  const test::TemporaryFolder folder;
  const auto app = test::makeApp(
      folder.path(),
      {.folderName = "\x1b[2JExample.app", .info = {{"CFBundleIdentifier", "a\u009b2J\nmacho"}}});
  EXPECT_THAT(test::inspectRun({"app", app}).standardOutput,
              AllOf(HasSubstr("/\\u001b[2JExample.app\n"),
                    HasSubstr("\nbundleIdentifier: a\\u009b2J\\nmacho\n")));
  EXPECT_THAT(test::inspectRun({"app", app, "--json"}).standardOutput,
              AllOf(HasSubstr("/\\u001b[2JExample.app\""), HasSubstr("\"a\\u009b2J\\nmacho\"")));
  const auto missing = folder / "\u009b2J.app";
  EXPECT_THAT(test::inspectRun({"app", missing}).standardError, HasSubstr("/\\u009b2J.app"));
}

TEST(InspectReports, DSYMAgreesWithLLVMAndMatchesItsBinary) {
  const test::TemporaryFolder folder;
  test::linkImage(folder / "Demo", {.compilerArguments = {"-g"}});
  test::makeDSYM(folder / "Demo", folder / "Demo.dSYM");
  const auto document =
      test::inspectDocument({"dsym", folder / "Demo.dSYM", "--match", folder / "Demo"});
  EXPECT_EQ(uuidsIn(document, "uuids"), test::slicesOf(folder / "Demo.dSYM"));
  EXPECT_EQ(textAt(document, "bundleIdentifier"), "Demo");
  EXPECT_EQ(at(document, "match.0.hasSymbols"), Value(true));

  const auto other =
      test::inspectRun({"dsym", folder / "Demo.dSYM", "--match", test::universalExecutable()});
  EXPECT_EQ(other.status, 1);
  EXPECT_THAT(other.standardOutput, HasSubstr(": no symbols here\n"));
}

TEST(InspectReports, AppReadsTheSameFromFolderIPAAndArchive) {
  const test::TemporaryFolder folder;
  const test::ScopedEnvironment temporary("TMPDIR", folder.path().c_str());
  const auto app = test::makeApp(folder.path());
  const auto ipa = test::packIPA(app, folder / "Some App.ipa");
  test::makeArchive(folder / "Example.xcarchive", app);
  const auto keychain = test::writeKeychain(folder / "keys.pem");

  const auto expected = test::inspectDocument({"app", app, "--keychain", keychain});
  EXPECT_EQ(textAt(expected, "bundleIdentifier"), "com.example.app");
  EXPECT_EQ(uuidsIn(expected, "macho.slices"), test::slicesOf(test::universalExecutable()));
  EXPECT_EQ(textAt(expected, "profile.developerCertificates.0.signingIdentity"),
            test::signingFamily().leaf.sha1());
  for (const std::filesystem::path& source : {ipa, folder / "Example.xcarchive"}) {
    SCOPED_TRACE(source);
    const auto document = test::inspectDocument({"app", source});
    EXPECT_EQ(at(document, "macho"), at(expected, "macho"));
    EXPECT_EQ(at(document, "displayVersion"), at(expected, "displayVersion"));
    EXPECT_EQ(at(document, "profile.developerCertificates.0.isPrivateKeyAvailable"), Value(false));
    // Told apart from what the inflated .ipa leaves: nothing.
    EXPECT_FALSE(std::filesystem::exists(textAt(document, "path")) && source == ipa);
  }
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    EXPECT_THAT(entry.path().filename().string(), Not(testing::StartsWith("sendoff-inspect-")));
  }
}

TEST(InspectReports, PathsMayBeRelative) {
  const test::TemporaryFolder folder;
  const auto app = test::makeApp(folder.path());
  test::makeArchive(folder / "Example.xcarchive", app);
  test::linkImage(folder / "Demo", {.compilerArguments = {"-g"}});
  test::makeDSYM(folder / "Demo", folder / "Demo.dSYM");
  for (const std::vector<std::string>& words : {
           std::vector<std::string>{"macho", "Example.app/Example"},
           {"app", "Example.app"},
           {"app", "Example.xcarchive"},
           {"app", "./Example.xcarchive/"},
           {"dsym", "Demo.dSYM", "--match", "Demo"},
       }) {
    std::vector<std::string> command = {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", folder.path(),
                                        SENDOFF_INSPECT};
    command.insert(command.end(), words.begin(), words.end());
    const auto result = test::runCommand(command);
    EXPECT_EQ(result.status, 0) << words[1];
    EXPECT_THAT(result.output, HasSubstr("arm64")) << words[1];
  }
}

TEST(InspectReports, ProfileShowsPeopleOnlyWhereAskedTo) {
  const test::TemporaryFolder folder;
  const auto profile = test::makeApp(folder.path()) / "embedded.mobileprovision";
  const auto document = test::inspectDocument({"profile", profile});
  const auto device = textAt(document, "provisionedDevices.0");
  const auto person = textAt(document, "developerCertificates.0.commonName");
  EXPECT_EQ(textAt(document, "expirationDate"), "2045-03-01T00:00:00Z");
  EXPECT_EQ(textAt(document, "developerCertificates.0.sha1"), test::signingFamily().leaf.sha1());
  EXPECT_EQ(at(document, "newerMatch"), Value());

  const auto plain = test::inspectRun({"profile", profile}).standardOutput;
  EXPECT_THAT(plain, HasSubstr("provisionedDevices: 2 devices\n"));
  EXPECT_THAT(plain, HasSubstr("developerCertificates: 1 certificate, 0 with a private key\n"));
  EXPECT_THAT(plain, testing::AllOf(Not(HasSubstr(device)), Not(HasSubstr(person))));
  const auto detailed = test::inspectRun({"profile", profile, "-v"}).standardOutput;
  EXPECT_THAT(detailed, testing::AllOf(HasSubstr(device), HasSubstr(person)));
}

/// OpenSSL takes the message apart, Python the property list in it.
TEST(InspectReports, ProfileAgreesWithOpenSSLAndPython) {
  const test::TemporaryFolder folder;
  const auto profile = test::makeApp(folder.path()) / "embedded.mobileprovision";
  test::outputOf({"openssl", "cms", "-verify", "-noverify", "-inform", "DER", "-in", profile,
                  "-out", folder / "plist"});
  const auto facts = foundation::split(test::outputOf({"python3", "-c", R"(
import hashlib, plistlib, sys
p = plistlib.load(open(sys.argv[1], "rb"))
print(p["Name"], p["UUID"], p["ExpirationDate"].isoformat() + "Z", sep="\n")
print(*[hashlib.sha1(c).hexdigest().upper() for c in p["DeveloperCertificates"]])
print(*sorted(p["ProvisionedDevices"]))
)",
                                                       folder / "plist"}),
                                       '\n');
  ASSERT_EQ(facts.size(), 6u);
  const auto document = test::inspectDocument({"profile", profile});
  EXPECT_EQ(textAt(document, "name"), facts[0]);
  EXPECT_EQ(textAt(document, "UUID"), facts[1]);
  EXPECT_EQ(textAt(document, "expirationDate"), facts[2]);
  EXPECT_EQ(textAt(document, "developerCertificates.0.sha1"), facts[3]);
  EXPECT_EQ(
      textAt(document, "provisionedDevices.0") + " " + textAt(document, "provisionedDevices.1"),
      facts[4]);
}

TEST(InspectReports, AppWithABinaryInfoPlistOfAnotherWriter) {
  const test::TemporaryFolder folder;
  const auto app = test::makeApp(folder.path());
  test::outputOf({"python3", "-c", R"(
import plistlib, sys
info = plistlib.load(open(sys.argv[1], "rb"))
info.update(CFBundleIdentifier="com.example.grüße", CFBundleVersion="7.8")
plistlib.dump(info, open(sys.argv[1], "wb"), fmt=plistlib.FMT_BINARY)
)",
                  app / "Info.plist"});
  const auto document = test::inspectDocument({"app", app});
  EXPECT_EQ(textAt(document, "bundleIdentifier"), "com.example.grüße");
  EXPECT_EQ(textAt(document, "buildVersion"), "7.8");
}

TEST(InspectReports, InstalledProfilesAndTheNewerOne) {
  const test::TemporaryFolder folder;
  const test::ScopedEnvironment home("HOME", folder.path().c_str());
  test::AppOptions newer;
  newer.profile.uuid = "99999999-2222-3333-4444-555555555555";
  newer.profile.creationDate += std::chrono::hours(24);
  const auto old = test::makeApp(folder / "old") / "embedded.mobileprovision";
  const auto made = test::makeApp(folder / "new", newer) / "embedded.mobileprovision";
  const auto installed =
      folder / "Library/MobileDevice/Provisioning Profiles/newer.mobileprovision";
  std::filesystem::create_directories(installed.parent_path());
  std::filesystem::copy(made, installed);

  EXPECT_EQ(textAt(test::inspectDocument({"profile", old}), "newerMatch.UUID"), newer.profile.uuid);
  const auto all = test::inspectDocument({"profile", "--installed"});
  EXPECT_EQ(at(all, "profiles").array()->size(), 1u);
  EXPECT_EQ(textAt(all, "profiles.0.path"), installed);
  EXPECT_EQ(at(all, "profiles.0.developerCertificates.0.isPrivateKeyAvailable"), Value(false));

  const auto keychain = test::writeKeychain(folder / "keys.pem");
  const auto withKeys = test::inspectDocument({"profile", "--installed", "--keychain", keychain});
  EXPECT_EQ(at(withKeys, "profiles.0.developerCertificates.0.isPrivateKeyAvailable"), Value(true));

  std::filesystem::copy(old, installed.parent_path() / "older.mobileprovision");
  const auto both = test::inspectRun({"profile", "--installed", "-v"}).standardOutput;
  EXPECT_THAT(both, HasSubstr("a newer profile is installed: " + installed.string() + "\n"));
  EXPECT_THAT(both, HasSubstr(textAt(all, "profiles.0.provisionedDevices.0")));
}

TEST(InspectReports, ProjectTreeTargetsAndPaths) {
  const test::TemporaryFolder folder;
  folder.write("A.xcodeproj/project.pbxproj", R"(// !$*UTF8*$!
{ rootObject = P; objects = {
  P = { isa = PBXProject; mainGroup = G; targets = (T); };
  G = { isa = PBXGroup; children = (F, S, GONE); sourceTree = "<group>"; };
  S = { isa = PBXGroup; path = Sub; children = (D, S); sourceTree = "<group>"; };
  F = { isa = PBXFileReference; path = main.m; sourceTree = "<group>"; };
  D = { isa = PBXFileReference; path = Settings.bundle; sourceTree = "<group>"; };
  T = { isa = PBXNativeTarget; name = App; productType = "com.apple.product-type.application"; buildPhases = (R); };
  R = { isa = PBXResourcesBuildPhase; files = (B); };
  B = { isa = PBXBuildFile; fileRef = D; };
}; })");
  const auto document =
      test::inspectDocument({"project", folder / "A.xcodeproj", "--env", "SOURCE_ROOT=/src"});
  EXPECT_EQ(textAt(document, "filesCount"), "[3]");
  EXPECT_EQ(textAt(document, "groups.0.absolutePath"), "/src/main.m");
  EXPECT_EQ(textAt(document, "groups.1.absolutePath"), "/src/Sub");
  EXPECT_EQ(at(document, "groups.1.children.0.absolutePath"), Value());
  EXPECT_EQ(textAt(document, "targets.0.settingBundle.objectId"), "D");
  EXPECT_EQ(textAt(document, "targets.0.buildPhases.0.type"), "[5]");
  EXPECT_THAT(test::inspectRun({"project", folder / "A.xcodeproj"}).standardOutput,
              HasSubstr("main.m\nSub\n  Settings.bundle\n"));
}

TEST(InspectReports, ArchivesNewestFirst) {
  const test::ArchivesHome home;
  EXPECT_THAT(test::inspectRun({"archives"}).standardOutput,
              HasSubstr("no archive in " + home.location().string()));
  for (const std::string day : {"03-01", "03-02"}) {
    std::filesystem::create_directories(home.location() / day);
    home.addArchive(day, "App", "com.example." + day, day);
  }
  home.addArchive("03-02", "Older", "COM.example.03-02", "03-01");
  const auto document = test::inspectDocument({"archives"});
  EXPECT_EQ(at(document, "archives").array()->size(), 3u);
  EXPECT_EQ(textAt(document, "archives.0.bundleIdentifier"), "com.example.03-02");
  const auto latest = test::inspectDocument({"archives", "--latest", "com.example.03-02"});
  EXPECT_EQ(textAt(latest, "archives.0.creationDate"), "2015-03-02T00:00:00Z");
  EXPECT_EQ(test::inspectRun({"archives", "--latest", "com.none"}).status, 1);
}

}  // namespace

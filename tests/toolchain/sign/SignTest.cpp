#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/display/SignatureReport.h"
#include "toolchain/verify/Verification.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using toolchain::SignOptions;

constexpr foundation::Date kTime = std::chrono::sys_days{std::chrono::year{2026} / 3 / 1};

/// Who signs: with a key of either kind, or nobody.
struct Signer {
  std::string name;
  std::optional<KeyKind> key;
};
const std::vector<Signer> kSigners = {
    {"RSA", KeyKind::rsa}, {"P-256", KeyKind::p256}, {"ad hoc", std::nullopt}};

SignOptions optionsFor(const fs::path& code, const Signer& signer) {
  SignOptions options{.code = code, .identity = "-", .force = true, .signingTime = kTime};
  if (!signer.key) return options;
  options.identity = testKeychain(*signer.key).family.leaf.sha1();
  options.keychain = testKeychain(*signer.key).path;
  return options;
}

std::string complaintsAbout(const fs::path& code, const Signer& signer,
                            std::vector<std::string> more = {}) {
  if (signer.key) {
    more.insert(more.end(), {"--root", testKeychain(*signer.key).rootFile});
  } else {
    more.push_back("--adhoc");
  }
  std::string text = independentComplaints(code, more);
  const auto verdict = toolchain::verify({.code = code, .deep = true});
  for (const auto& line : verdict.statements) {
    if (verdict.status != 0) text += "\nverify: " + line;
  }
  for (const auto& line : verdict.files) text += "\nverify: " + line;
  return text;
}

TEST(Sign, EveryKindOfCodeVerifiesWithOtherMeans) {
  struct Case {
    std::string name;
    Kind kind;
  };
  const std::vector<Case> cases = {{"thin", Kind::arm64},
                                   {"old minimum OS", Kind::oldArm64},
                                   {"32-bit", Kind::armv7},
                                   {"universal", Kind::universal},
                                   {"watch", Kind::watch}};
  for (const Case& c : cases) {
    for (const Signer& signer : kSigners) {
      SCOPED_TRACE(c.name + ", " + signer.name);
      const TemporaryFolder folder;
      const fs::path app = writeApp(folder.path(), c.kind);
      writePlist(folder / "entitlements",
                 {{"get-task-allow", true},
                  {"dynamic-codesigning", false},
                  {"application-identifier", "T.com.example.x"},
                  {"groups", foundation::Array{"a", foundation::Dictionary{{"n", -129}}}}});
      SignOptions options = optionsFor(app, signer);
      options.entitlements = folder / "entitlements";
      ASSERT_EQ(signingProblem(options), "");
      EXPECT_EQ(complaintsAbout(app, signer, {"--entitlements", folder / "entitlements"}), "");
      // Signing what is signed changes nothing but the signature, which is the same again.
      const auto before = snapshot(app);
      ASSERT_EQ(signingProblem(options), "");
      EXPECT_TRUE(snapshot(app) == before) << "the same input has other bytes";
    }
  }
}

TEST(Sign, LooseFilesAreSignedByThemselves) {
  for (const Kind kind : {Kind::dylib, Kind::plistDylib, Kind::universal}) {
    const TemporaryFolder folder;
    const fs::path file = folder.write("libcode.1.2.dylib", machO(kind));
    ASSERT_EQ(signingProblem(optionsFor(file, kSigners[1])), "");
    EXPECT_EQ(complaintsAbout(file, kSigners[1]), "");
  }
}

/// An app that has one of everything inside, nothing of it signed.
fs::path writeFamilyOfApps(const fs::path& folder) {
  const fs::path app = writeApp(folder);
  writeBundle(app / "Frameworks/F.framework", "com.example.f", Kind::dylib);
  const fs::path extension = writeBundle(app / "PlugIns/E.appex", "com.example.x.e", Kind::arm64);
  writeFile(extension / "libinner.dylib", machO(Kind::dylib));
  ProfileOptions profile{.bundleIdentifier = "*"};
  writeFile(extension / "embedded.mobileprovision",
            makeProvisioningProfile(profile.dictionary(), testKeychain(KeyKind::p256).family.leaf)
                .text());
  const fs::path watch = writeBundle(app / "Watch/W.app", "com.example.x.w", Kind::watch);
  writeBundle(watch / "PlugIns/WE.appex", "com.example.x.w.e", Kind::watch);
  writeFile(app / "Frameworks/libswiftCore.dylib", machO(Kind::dylib));
  writePlist(app / "R.bundle/Info.plist", {{"CFBundleExecutable", "missing"}});
  writeFile(app / "tests/not-really.o", "\xcf\xfa\xed\xfe and no more");
  return app;
}

TEST(Sign, UnsignedNestedCodeComesFirst) {
  const TemporaryFolder folder;
  const fs::path app = writeFamilyOfApps(folder.path());
  std::vector<std::string> notes;
  ASSERT_EQ(signingProblem(optionsFor(app, kSigners[1]), &notes), "");
  const auto note = [&](const char* path) {
    return (app / path).string() + ": is not signed, signing it first";
  };
  EXPECT_THAT(notes,
              ElementsAre(note("Watch/W.app/PlugIns/WE.appex"), note("Frameworks/F.framework"),
                          note("PlugIns/E.appex"), note("PlugIns/E.appex/libinner.dylib"),
                          note("Watch/W.app"), note("Frameworks/libswiftCore.dylib")));
  for (const char* path : {"", "Watch/W.app", "Watch/W.app/PlugIns/WE.appex", "PlugIns/E.appex",
                           "PlugIns/E.appex/libinner.dylib", "Frameworks/libswiftCore.dylib",
                           "Frameworks/F.framework"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(complaintsAbout(app / path, kSigners[1]), "");
  }
  // The extension's own profile says what the extension may do.
  EXPECT_THAT(contentsOf(app / "PlugIns/E.appex/E"), HasSubstr("ABCDE12345.com.example.x.e"));
  EXPECT_EQ(contentsOf(app / "tests/not-really.o"), "\xcf\xfa\xed\xfe and no more");
}

TEST(Sign, SignedNestedCodeStaysUnlessAskedForInDepth) {
  const TemporaryFolder folder;
  const fs::path app = writeFamilyOfApps(folder.path());
  ASSERT_EQ(signingProblem(optionsFor(app, kSigners[1])), "");
  const auto nested = [&](const char* name) { return snapshot(app / name); };
  const auto frameworks = nested("Frameworks");
  const auto extensions = nested("PlugIns");
  SignOptions options = optionsFor(app, kSigners[0]);
  std::vector<std::string> notes;
  ASSERT_EQ(signingProblem(options, &notes), "");
  EXPECT_THAT(notes, ElementsAre(app.string() + ": replacing existing signature"));
  EXPECT_TRUE(nested("Frameworks") == frameworks && nested("PlugIns") == extensions);
  options.deep = true;
  ASSERT_EQ(signingProblem(options), "");
  EXPECT_TRUE(nested("Frameworks") != frameworks && nested("PlugIns") != extensions);
  for (const char* path : {"", "Watch/W.app/PlugIns/WE.appex", "PlugIns/E.appex/libinner.dylib"}) {
    EXPECT_EQ(complaintsAbout(app / path, kSigners[0]), "");
  }
}

TEST(Sign, AttributesStayAndLeftoversGo) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder.path());
  fs::permissions(app / "X", fs::perms(0750));
  const bool hasAttributes = ::setxattr((app / "X").c_str(), "user.note", "kept", 4, 0) == 0;
  writeFile(app / "_CodeSignature/ResourceRules", "old");
  writeFile(app / "_CodeSignature/folder/CodeDirectory", "old");
  ASSERT_EQ(::mkfifo((app / "_CodeSignature/CodeResources").c_str(), 0600), 0);
  ASSERT_EQ(signingProblem(optionsFor(app, kSigners[1])), "");
  EXPECT_EQ(fs::status(app / "X").permissions(), fs::perms(0750));
  char value[4] = {};
  if (hasAttributes) {
    EXPECT_EQ(::getxattr((app / "X").c_str(), "user.note", value, 4), 4);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(app / "_CodeSignature"), {}), 1);
  EXPECT_EQ(complaintsAbout(app, kSigners[1]), "");
}

TEST(Sign, WhatANestedLinkLeadsToIsLeftAlone) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder.path());
  const fs::path other = writeBundle(folder / "Other.app", "com.example.other", Kind::arm64);
  fs::create_directory(other / "MacOS");
  fs::copy_file(other / "Other", other / "MacOS/Other");
  fs::create_directories(app / "PlugIns/A.appex");
  fs::create_symlink(other, app / "PlugIns/A.appex/Contents");
  writePlist(app / "PlugIns/B.appex/Contents/Info.plist", {{"CFBundleExecutable", "Other"}});
  fs::create_symlink(other / "MacOS", app / "PlugIns/B.appex/Contents/MacOS");
  const auto before = snapshot(other);
  EXPECT_EQ(signingProblem(optionsFor(app, kSigners[1])), "");
  EXPECT_TRUE(snapshot(other) == before);
  EXPECT_EQ(complaintsAbout(app, kSigners[1]), "");
}

/// A linker signs without being asked; that says nothing about who made the code.
TEST(Sign, WhatOnlyTheLinkerSignedCountsAsUnsigned) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder.path());
  const fs::path library = app / "Frameworks/libl.dylib";
  fs::create_directories(library.parent_path());
  linkImage(app / "X", {.linkerArguments = {"-adhoc_codesign"}});
  linkImage(library, {.linkerArguments = {"-dylib", "-adhoc_codesign"}});
  SignOptions options = optionsFor(app, kSigners[1]);
  options.force = false;
  std::vector<std::string> notes;
  ASSERT_EQ(signingProblem(options, &notes), "");
  EXPECT_THAT(notes, ElementsAre(library.string() + ": is not signed, signing it first"));
  EXPECT_EQ(complaintsAbout(library, kSigners[1]), "");
}

TEST(Sign, InfoPlistMayAskForFlagsButNotForTheSignersOwn) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder.path());
  writePlist(app / "Info.plist", {{"CFBundleExecutable", "X"}, {"CSFlags", 0x70802}});
  ASSERT_EQ(signingProblem(optionsFor(app, kSigners[1])), "");
  EXPECT_THAT(*toolchain::signatureReport({.code = app, .verbosity = 1}),
              testing::Contains(HasSubstr("flags=0x800(none)")));
}

TEST(Sign, EntitlementsOfLibrariesArePassedOver) {
  const TemporaryFolder folder;
  const fs::path framework = writeBundle(folder / "F.framework", "com.example.f", Kind::dylib);
  SignOptions options = optionsFor(framework, kSigners[1]);
  options.entitlements = folder / "missing";
  ASSERT_EQ(signingProblem(options), "");
  EXPECT_EQ(complaintsAbout(framework, kSigners[1]), "");
}

/// Resources in a folder of their own: nested code is sealed by its hash and requirement.
TEST(Sign, BundlesWithAResourcesFolderSealNestedCodeAsCode) {
  const TemporaryFolder folder;
  const fs::path app = writeBundle(folder / "X.app", "com.example.x", Kind::arm64);
  writeFile(app / "Resources/en.lproj/a.strings", "a");
  writeFile(app / "plain.txt", "a");
  writeBundle(app / "Frameworks/F.framework", "com.example.f", Kind::dylib);
  writeFile(app / "Frameworks/libloose.dylib", machO(Kind::dylib));
  std::vector<std::string> notes;
  ASSERT_EQ(signingProblem(optionsFor(app, kSigners[1]), &notes), "");
  const std::string unsignedText = ": is not signed, signing it first";
  EXPECT_THAT(notes, ElementsAre((app / "Frameworks/F.framework").string() + unsignedText,
                                 (app / "Frameworks/libloose.dylib").string() + unsignedText));
  EXPECT_EQ(complaintsAbout(app / "Frameworks/libloose.dylib", kSigners[1]), "");
  const std::string seal = contentsOf(app / "_CodeSignature/CodeResources");
  EXPECT_THAT(seal, HasSubstr("<key>Frameworks/F.framework</key>\n\t\t<dict>\n\t\t\t<key>cdhash"));
  EXPECT_THAT(seal, HasSubstr("<string>identifier \"com.example.f\" and certificate"));
  EXPECT_THAT(seal, testing::Not(HasSubstr("F.framework/Info.plist")));
  EXPECT_EQ(complaintsAbout(app, kSigners[1], {"--no-seal-check"}), "");
}

/// The name of the root decides about the requirement; that it is met takes the root itself.
TEST(Sign, AHomeMadeDeveloperIdentitySignsButDoesNotMeetItsRequirement) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder.path());
  const Family family = makeDeveloperFamily();
  SignOptions options{.code = app, .identity = family.leaf.sha1()};
  options.keychain = folder.write("keychain.pem", family.pem());
  fs::permissions(*options.keychain, fs::perms(0600));
  ASSERT_EQ(signingProblem(options), "");
  EXPECT_THAT(*toolchain::requirementsReport(app),
              ElementsAre(HasSubstr("anchor apple generic and certificate leaf[subject.CN] = ")));
  EXPECT_EQ(toolchain::verify({.code = app}).status, 3);
}

/// Whoever may write to the tree puts a link into it once the bundles have been found.
TEST(Sign, ALinkThatIsPutIntoTheTreeIsNotFollowed) {
  const TemporaryFolder folder;
  const fs::path app = writeApp(folder / "theirs");
  writeBundle(app / "PlugIns/E.appex", "com.example.e", Kind::arm64);
  const fs::path victim = folder / "victim";
  writeBundle(victim / "E.appex", "com.example.e", Kind::arm64);
  const auto before = snapshot(victim);
  SignOptions options = optionsFor(app, kSigners[1]);
  options.note = [&](const std::string&) {
    fs::rename(app / "PlugIns", folder / "moved");
    fs::create_directory_symlink(victim, app / "PlugIns");
  };
  const auto done = toolchain::sign(options);
  ASSERT_FALSE(done);
  EXPECT_THAT(done.error().localizedDescription(), HasSubstr("PlugIns/E.appex"));
  EXPECT_TRUE(snapshot(victim) == before);
}

TEST(Sign, DateOfTheSourceIsReadStrictly) {
  for (const auto& [text, isGood] : {std::pair{"0", true},
                                     {"1772323200", true},
                                     {"-1", false},
                                     {"1 ", false},
                                     {"", false},
                                     {"99999999999999", false}}) {
    const ScopedEnvironment scope("SOURCE_DATE_EPOCH", text);
    EXPECT_EQ(toolchain::sourceDateEpoch().ok(), isGood) << text;
  }
  const ScopedEnvironment scope("SOURCE_DATE_EPOCH", nullptr);
  EXPECT_FALSE(toolchain::sourceDateEpoch()->has_value());
}

}  // namespace

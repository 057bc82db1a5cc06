#include "foundation/base/Format.h"
#include "signing/QVTIPABuilder.h"
#include "tests/signing/RecordedTools.h"
#include "tests/support/Identities.h"

namespace {

namespace PropertyList = foundation::PropertyList;

constexpr const char* kMark = "QuorvantileSignedForDistribution";

/// What a packaging needs, in a folder of its own: the app, its profile, the identity and the
/// tools.
struct Workshop {
  Workshop() {
    tools.answer(script);
    writePlist(folder / "entitlements", {{"beta-reports-active", true}});
    writePlist(app / "Info.plist", {{"CFBundleIdentifier", "com.example.app"}});
    const MadeIdentity leaf = makeLeaf(makeRoot());
    const auto keychain = folder.write("login.pem", leaf.keyPEM());
    fs::permissions(keychain, fs::perms::owner_all);
    ProfileOptions options;
    options.developerCertificates = {leaf.der()};
    writeFile(profile, makeProvisioningProfile(options.dictionary(), leaf).text());
    const auto read = QVTProvisioningProfile::initWithPathKeychainPath(profile, keychain);
    builder = QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
        read, read->certWithPrivateKeyAvailable());
    fs::create_directory(folder / "tmp");
  }
  bool package(const fs::path& destination) {
    return builder->packageSourceToDestinationPath(app.string() + "/", destination, &error);
  }
  fs::path workFolders() const { return folder / "tmp/com.quorvantile.ipas"; }

  TemporaryFolder folder;
  RecordedTools tools;
  ScopedEnvironment home{"HOME", folder.path().c_str()};
  ScopedEnvironment temporary{"TMPDIR", (folder / "tmp").c_str()};
  /// Of `codesign`, which copies the entitlements when it is asked for them.
  std::string script =
      "[ $1 != --display ] || cp '" + (folder / "entitlements").string() + "' \"${5#:}\"";
  fs::path app = folder / "My App.app";
  fs::path profile = folder / "new.mobileprovision";
  std::shared_ptr<QVTIPABuilder> builder;
  std::optional<Error> error;
};

TEST(QVTIPABuilder, OnlyAMarkedAppIsPackedAsItIs) {
  Workshop shop;
  const std::pair<Value, bool> cases[] = {{true, true},   {1, true},     {"YES", true},
                                          {false, false}, {"NO", false}, {Array{true}, false}};
  for (const auto& [mark, counts] : cases) {
    SCOPED_TRACE(foundation::description(mark));
    writePlist(shop.app / "Info.plist", {{kMark, mark}});
    EXPECT_EQ(shop.builder->infoPlistAlreadyHasDistribution(shop.app), counts);
    ASSERT_TRUE(shop.package(shop.folder / "new/out.ipa")) << shop.error->description();
    EXPECT_TRUE(fs::is_empty(shop.workFolders()));
    const auto runs = shop.tools.takeRuns();
    ASSERT_EQ(runs.size(), counts ? 0 : 4) << "verify, export, sign, verify";
    if (counts) continue;
    EXPECT_THAT(runs[2], HasSubstr("/Payload/entitlements.xml "));
  }
}

TEST(QVTIPABuilder, EachFailingStepHasItsCode) {
  using Spoil = std::function<void(const Workshop&)>;
  // The failure's code and that of what caused it, 0 for none.
  const std::tuple<const char*, long, long, Spoil> cases[] = {
      {"a file where the work folder should be", -1, ENOTDIR,
       [](auto& shop) { writeFile(shop.workFolders(), ""); }},
      {"a file where the destination's folder should be", -1, ENOTDIR,
       [](auto& shop) { shop.folder.write("out", ""); }},
      {"no app", -2, 0, [](auto& shop) { fs::remove_all(shop.app); }},
      {"no profile", -5, -1, [](auto& shop) { fs::remove(shop.profile); }},
      {"signing fails", -6, -2,
       [](auto& shop) { shop.tools.answer("[ $1 != --sign ] || exit 1\n" + shop.script); }},
      {"not an archive", -8, 0, [](auto& shop) { shop.folder.write("out/App.ipa", "text"); }},
      {"no Info.plist", -9, 0, [](auto& shop) { fs::remove(shop.app / "Info.plist"); }},
      {"no entitlements", -10, 0, [](auto& shop) { shop.tools.answer("[ $1 != --display ]"); }},
      {"not a property list", -13, 0, [](auto& shop) { shop.folder.write("entitlements", "x"); }},
  };
  for (const auto& [name, code, causeCode, spoil] : cases) {
    SCOPED_TRACE(name);
    Workshop shop;
    spoil(shop);
    EXPECT_FALSE(shop.package(shop.folder / "out/App.ipa"));
    ASSERT_TRUE(shop.error);
    EXPECT_EQ(shop.error->domain, "QVTIPABuilderErrorDomain");
    EXPECT_EQ(shop.error->code, code);
    const Value* cause = find(shop.error->userInfo, "UnderlyingError");
    EXPECT_EQ(cause ? cause->error()->code : 0, causeCode);
    const fs::path work = stringAt(shop.error->userInfo, "SourcePath").value_or("");
    EXPECT_EQ(work.parent_path(), shop.workFolders());
    EXPECT_EQ(fs::exists(work), fs::is_directory(shop.workFolders())) << "left in place";
  }
}

TEST(QVTIPABuilder, AFailedZipTellsItsRun) {
  Workshop shop;
  const std::string destination = shop.folder.write("out/App.ipa", "not an archive");
  ASSERT_FALSE(shop.package(destination));
  const Dictionary& run = shop.error->userInfo;
  EXPECT_THAT(*stringAt(run, "command"), EndsWith("/zip"));
  EXPECT_EQ(*arrayAt(run, "arguments"), (Array{"-q", "--symlinks", "-r", destination, "Payload"}));
  EXPECT_NE(find(run, "status")->integerValue(), 0);
  EXPECT_THAT(*stringAt(run, "stderr") + *stringAt(run, "stdout"), HasSubstr("zip error"));
}

TEST(QVTIPABuilder, AnExistingArchiveIsAddedToAndARelativePathIsInTheWorkFolder) {
  Workshop shop;
  ASSERT_TRUE(shop.package(shop.folder / "App.ipa"));
  fs::rename(shop.app, shop.folder / "Other.app");
  shop.app = shop.folder / "Other.app";
  ASSERT_TRUE(shop.package(shop.folder / "App.ipa"));
  const auto names = foundation::split(outputOf({"unzip", "-Z1", shop.folder / "App.ipa"}), '\n');
  EXPECT_THAT(names,
              IsSupersetOf({"Payload/My App.app/Info.plist", "Payload/Other.app/Info.plist"}));
  EXPECT_TRUE(shop.package("sendoff-relative-destination.ipa"));
  EXPECT_FALSE(fs::exists("sendoff-relative-destination.ipa"));
}

TEST(QVTIPABuilder, RewritingKeepsTypesAndPermissions) {
  const Workshop shop;
  const Dictionary content{{"text", "42"},
                           {"number", 42},
                           {"real", 1.5},
                           {"flag", false},
                           {"data", Data(std::string("\x00\xff", 2))},
                           {"date", Date(std::chrono::sys_days{2015y / 3 / 1})},
                           {"list", Array{"a", Dictionary{{"b", true}}}}};
  const std::string path = shop.app / "Info.plist";
  Dictionary marked = content;
  marked[kMark] = true;
  writePlist(path, content);
  fs::permissions(path, fs::perms::owner_all);
  ASSERT_TRUE(shop.builder->markInfoPlistForDistributionAtAppPath(shop.app));
  EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), marked);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
  Dictionary beta = content;
  beta["beta-reports-active"] = "anything";
  for (const Dictionary& entitlements : {beta, content}) {
    writePlist(path, entitlements);
    ASSERT_TRUE(shop.builder->repairEntitlements(path));
    EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), content);
  }
}

}  // namespace

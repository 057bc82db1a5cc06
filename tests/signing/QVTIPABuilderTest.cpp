#include "foundation/base/Format.h"
#include "signing/QVTIPABuilder.h"
#include "tests/signing/RecordedTools.h"
#include "tests/support/AppFixture.h"

namespace {

namespace PropertyList = foundation::PropertyList;

constexpr const char* kMark = "QuorvantileSignedForDistribution";

/// What a packaging needs, in a folder of its own: the app, its profile, the identity and the
/// tools. `codesign` does nothing, successfully, but for writing the entitlements when asked for
/// them.
struct Workshop {
  Workshop() {
    tools.answer(script);
    writePlist(folder / "entitlements", {{"beta-reports-active", true}});
    writePlist(app / "Info.plist", {{"CFBundleIdentifier", "com.example.app"}});
    ProfileOptions options;
    options.developerCertificates = {signingFamily().leaf.der()};
    writeFile(profile, makeProvisioningProfile(options.dictionary(), signingFamily().leaf).text());
    fs::create_directory(folder / "tmp");
    makeBuilder();
  }
  void makeBuilder() {
    const auto read = QVTProvisioningProfile::initWithPathKeychainPath(
        profile, writeKeychain(folder / "login.pem"));
    builder = QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
        read, read->certWithPrivateKeyAvailable());
  }
  bool package(const fs::path& destination) {
    return builder->packageSourceToDestinationPath(app.string() + "/", destination, &error);
  }
  [[nodiscard]] std::vector<std::string> workFolders() const {
    return pathsBelow(folder / "tmp/com.quorvantile.ipas");
  }
  [[nodiscard]] fs::path unzip(const fs::path& ipa) const {
    outputOf({"unzip", "-q", ipa, "-d", folder / "unzipped"});
    return folder / "unzipped/Payload";
  }

  TemporaryFolder folder;
  RecordedTools tools;
  std::string script =
      "[ $1 != --display ] || cp '" + (folder / "entitlements").string() + "' \"${5#:}\"";
  ScopedEnvironment home{"HOME", folder.path().c_str()};
  ScopedEnvironment temporary{"TMPDIR", (folder / "tmp").c_str()};
  fs::path app = folder / "My App.app";
  fs::path profile = folder / "new.mobileprovision";
  std::shared_ptr<QVTIPABuilder> builder;
  std::optional<Error> error;
};

TEST(QVTIPABuilder, TheAppIsMarkedSignedAndZipped) {
  Workshop shop;
  shop.tools.answer("exec \"" SENDOFF_LIBEXEC "/codesign\" \"$@\"");
  makeApp(shop.folder.path(), {.folderName = "My App.app"});
  writeFile(shop.app / "Größe.txt", "content");
  fs::create_symlink("Größe.txt", shop.app / "link");
  const Dictionary rights{{"application-identifier", "ABCDE12345.com.example.app"}};
  Dictionary betaRights = rights;
  betaRights.emplace("beta-reports-active", true);
  const auto& signer = *shop.builder->signer();
  shop.builder->signer()->setEntitlementsPath(writePlist(shop.folder / "rights", betaRights));
  ASSERT_TRUE(signer.sign(shop.app));
  const auto source = snapshot(shop.app);
  shop.tools.takeRuns();

  ASSERT_TRUE(shop.package(shop.folder / "new/folder/My App.ipa")) << shop.error->description();
  EXPECT_THAT(shop.tools.takeRuns(), ElementsAre(HasSubstr(" -vv "), HasSubstr(" --display "),
                                                 HasSubstr(" --sign "), HasSubstr(" -vv ")));
  EXPECT_EQ(snapshot(shop.app), source);
  EXPECT_THAT(shop.workFolders(), IsEmpty());
  const fs::path payload = shop.unzip(shop.folder / "new/folder/My App.ipa");
  const fs::path packed = payload / "My App.app";
  EXPECT_EQ(std::distance(fs::directory_iterator(payload), {}), 1) << "no exported files";
  EXPECT_EQ(contentsOf(packed / "Größe.txt"), "content");
  EXPECT_EQ(fs::read_symlink(packed / "link"), "Größe.txt");
  EXPECT_EQ(contentsOf(packed / "embedded.mobileprovision"), contentsOf(shop.profile));
  EXPECT_TRUE(shop.builder->infoPlistAlreadyHasDistribution(packed));
  outputOf({SENDOFF_LIBEXEC "/codesign", "--verify", packed});  // so all of this is sealed
  const std::string exported = shop.folder / "exported";
  ASSERT_TRUE(signer.exportAppEntitlementsToPathResourceRulesToPath(packed, exported, exported));
  EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(exported), rights);
}

TEST(QVTIPABuilder, OnlyAMarkedAppIsPackedAsItIs) {
  Workshop shop;
  const std::pair<Value, bool> cases[] = {{true, true},   {1, true},     {"YES", true},
                                          {false, false}, {"NO", false}, {Array{true}, false}};
  for (const auto& [mark, counts] : cases) {
    SCOPED_TRACE(foundation::description(mark));
    writePlist(shop.app / "Info.plist", {{kMark, mark}});
    EXPECT_EQ(shop.builder->infoPlistAlreadyHasDistribution(shop.app), counts);
    ASSERT_TRUE(shop.package(shop.folder / "out.ipa"));
    EXPECT_THAT(shop.tools.takeRuns(), SizeIs(counts ? 0 : 4));
  }
}

TEST(QVTIPABuilder, EachFailingStepHasItsCode) {
  const struct {
    const char* name;
    long code;
    std::optional<long> cause;
    std::function<void(Workshop&)> spoil;
  } cases[] = {
      {"a file where the work folder should be", -1, ENOTDIR,
       [](auto& shop) { shop.folder.write("tmp/com.quorvantile.ipas", ""); }},
      {"a file where the destination's folder should be", -1, ENOTDIR,
       [](auto& shop) { shop.folder.write("out", ""); }},
      {"no app", -2, {}, [](auto& shop) { fs::remove_all(shop.app); }},
      {"no profile", -5, -1, [](auto& shop) { fs::remove(shop.profile); }},
      {"signing fails", -6, -2,
       [](auto& shop) { shop.tools.answer("[ $1 != --sign ] || exit 1\n" + shop.script); }},
      {"not an archive", -8, {}, [](auto& shop) { shop.folder.write("out/App.ipa", "text"); }},
      {"no Info.plist", -9, {}, [](auto& shop) { fs::remove(shop.app / "Info.plist"); }},
      {"no entitlements", -10, {}, [](auto& shop) { shop.tools.answer("[ $1 != --display ]"); }},
      {"no codesign_allocate", -12, -5,
       [](auto& shop) {
         shop.tools.answerXcrun("[ $2 = codesign ] && echo /found");
         shop.makeBuilder();
       }},
      {"not a property list", -13, {}, [](auto& shop) { shop.folder.write("entitlements", "x"); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Workshop shop;
    c.spoil(shop);
    EXPECT_FALSE(shop.package(shop.folder / "out/App.ipa"));
    ASSERT_TRUE(shop.error);
    EXPECT_EQ(shop.error->domain, "QVTIPABuilderErrorDomain");
    EXPECT_EQ(shop.error->code, c.code);
    const Value* cause = find(shop.error->userInfo, "UnderlyingError");
    ASSERT_EQ(cause != nullptr, c.cause.has_value());
    EXPECT_EQ(cause ? cause->error()->code : 0, c.cause.value_or(0));
    const fs::path work = stringAt(shop.error->userInfo, "SourcePath").value_or("");
    EXPECT_EQ(work.parent_path(), shop.folder / "tmp/com.quorvantile.ipas");
    EXPECT_EQ(fs::exists(work), fs::is_directory(work.parent_path())) << "left in place";
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
  EXPECT_THAT(pathsBelow(shop.unzip(shop.folder / "App.ipa")),
              IsSupersetOf({"My App.app/Info.plist", "Other.app/Info.plist"}));
  EXPECT_TRUE(shop.package("sendoff-relative-destination.ipa"));
  EXPECT_FALSE(fs::exists("sendoff-relative-destination.ipa"));
  EXPECT_THAT(shop.workFolders(), IsEmpty()) << "removed with all it held";
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
  for (const Value& rights : {Value(true), Value("anything"), Value()}) {
    Dictionary entitlements = content;
    if (rights.type() != Value::Type::null) entitlements["beta-reports-active"] = rights;
    writePlist(path, entitlements);
    ASSERT_TRUE(shop.builder->repairEntitlements(path));
    EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), content);
  }
}

}  // namespace

#include "signing/QVTIPABuilder.h"
#include "tests/signing/RecordedTools.h"
#include "tests/support/Identities.h"

namespace {

/// What a packaging needs, in a folder of its own: the app, its profile and the tools.
struct Workshop {
  Workshop() {
    // `codesign` copies the entitlements when it is asked for them.
    const std::string entitlements = writePlist(folder / "entitlements", {});
    tools.answer("[ $1 != --display ] || cp '" + entitlements + "' \"${5#:}\"");
    writePlist(app / "Info.plist", {{"CFBundleIdentifier", "com.example.app"}});
    const MadeIdentity leaf = makeRoot();
    const auto message = makeProvisioningProfile(ProfileOptions().dictionary(), leaf);
    builder = QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
        QVTProvisioningProfile::initWithPath(writeFile(profile, message.text())),
        QVTDeveloperCertificate::initWithData(leaf.der()));
  }
  bool package(const fs::path& destination) {
    return builder->packageSourceToDestinationPath(app.string() + "/", destination, &error);
  }

  TemporaryFolder folder;
  RecordedTools tools;
  ScopedEnvironment home{"HOME", folder.path().c_str()};
  ScopedEnvironment temporary{"TMPDIR", folder.path().c_str()};
  fs::path app = folder / "My App.app";
  fs::path profile = folder / "new.mobileprovision";
  std::shared_ptr<QVTIPABuilder> builder;
  std::optional<Error> error;
};

TEST(QVTIPABuilder, EachFailingStepHasItsCode) {
  using Spoil = std::function<void(const Workshop&)>;
  // The failure's code and that of what caused it, 0 for none.
  const std::tuple<const char*, long, long, Spoil> cases[] = {
      {"a file where the destination's folder should be", -1, ENOTDIR,
       [](auto& shop) { shop.folder.write("out", ""); }},
      {"no app", -2, 0, [](auto& shop) { fs::remove_all(shop.app); }},
      {"no profile", -5, -1, [](auto& shop) { fs::remove(shop.profile); }},
      {"not an archive", -8, 0, [](auto& shop) { shop.folder.write("out/App.ipa", "text"); }},
      {"no Info.plist", -9, 0, [](auto& shop) { fs::remove(shop.app / "Info.plist"); }},
      {"not a property list", -13, 0, [](auto& shop) { shop.folder.write("entitlements", "x"); }},
  };
  for (const auto& [name, code, causeCode, spoil] : cases) {
    SCOPED_TRACE(name);
    Workshop shop;
    spoil(shop);
    EXPECT_FALSE(shop.package(shop.folder / "out/App.ipa"));
    ASSERT_TRUE(shop.error);
    EXPECT_EQ(shop.error->code, code);
    const Value* cause = find(shop.error->userInfo, "UnderlyingError");
    EXPECT_EQ(cause ? cause->error()->code : 0, causeCode);
  }
}

TEST(QVTIPABuilder, AnExistingArchiveIsAddedToAndARelativePathIsInTheWorkFolder) {
  Workshop shop;
  pack(shop.folder / "App.ipa", {{"Payload/Other.app/Info.plist", ""}});
  ASSERT_TRUE(shop.package(shop.folder / "App.ipa"));
  const auto names = foundation::split(outputOf({"unzip", "-Z1", shop.folder / "App.ipa"}), '\n');
  EXPECT_THAT(names,
              IsSupersetOf({"Payload/My App.app/Info.plist", "Payload/Other.app/Info.plist"}));
  EXPECT_TRUE(shop.package("sendoff-relative-destination.ipa"));
  EXPECT_FALSE(fs::exists("sendoff-relative-destination.ipa"));
}

}  // namespace

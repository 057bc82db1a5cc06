#include "signing/QVTIPABuilder.h"
#include "tests/support/Test.h"

namespace {

TEST(QVTIPABuilder, AnExistingArchiveIsAddedToAndARelativePathIsInTheWorkFolder) {
  const TemporaryFolder folder;
  const ScopedEnvironment path("PATH", SENDOFF_LIBEXEC ":/usr/bin:/bin");
  const ScopedEnvironment temporary("TMPDIR", folder.path().c_str());
  const std::string app = folder / "My App.app/";
  writePlist(app + "Info.plist", {{"QuorvantileSignedForDistribution", "YES"}});
  const auto archive = pack(folder / "App.ipa", {{"Payload/Other.app/Info.plist", ""}});
  // A marked app needs no certificate.
  const auto builder =
      QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(nullptr, nullptr);
  ASSERT_TRUE(builder->packageSourceToDestinationPath(app, archive));
  EXPECT_THAT(foundation::split(outputOf({"unzip", "-Z1", archive}), '\n'),
              IsSupersetOf({"Payload/My App.app/Info.plist", "Payload/Other.app/Info.plist"}));
  EXPECT_TRUE(builder->packageSourceToDestinationPath(app, "sendoff-relative-destination.ipa"));
  EXPECT_FALSE(fs::exists("sendoff-relative-destination.ipa"));
}

}  // namespace

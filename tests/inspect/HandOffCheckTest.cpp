#include "inspect/AppSource.h"
#include "inspect/HandOffCheck.h"
#include "signing/QVTProvisioningProfile.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "toolchain/sign/Signing.h"

namespace {

/// The test makes a root certificate with the name of the vendor's.
TEST(HandOff, NestedCodeOfTheVendorsOwnIsFineAsItIs) {
  const TemporaryFolder folder;
  const auto app = makeApp(folder.path());
  const auto root = makeRoot("Apple Root CA");
  const auto issuer = makeLeaf(root, {.commonName = "Apple Code Signing",
                                      .extensions = "basicConstraints=critical,CA:TRUE\n"});
  const auto leaf =
      makeLeaf(issuer, {.commonName = "Software Signing", .organizationalUnit = "59GAB85EFG"});
  const auto library = app / "libswiftCore.dylib";
  linkImage(library, "arm64", {"-dylib"});
  ASSERT_TRUE(toolchain::sign({.code = library,
                               .identity = leaf.sha1(),
                               .keychain = writeKeychain(folder / "own.pem", {leaf, issuer, root}),
                               .force = true}));
  const auto source = inspect::AppSource::open(app);
  ASSERT_TRUE(source);
  const auto profile = QVTProvisioningProfile::initWithPath(app / "embedded.mobileprovision");
  inspect::HandOff handOff{.resource = source->resource(), .profile = profile.get()};
  const auto findings = inspect::checkNestedCode(handOff);
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_THAT(findings[0].problem, HasSubstr("team 59GAB85EFG"));
  handOff.isAppleRoot = toolchain::isNamedLikeAppleRoot;
  EXPECT_THAT(inspect::checkNestedCode(handOff), IsEmpty());
}

}  // namespace

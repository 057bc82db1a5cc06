#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inspect/AppSource.h"
#include "inspect/HandOffCheck.h"
#include "signing/QVTProvisioningProfile.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "toolchain/sign/Signing.h"

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

/// Its roots cannot be made at home: one that only has the name stands in for them.
TEST(HandOff, NestedCodeOfTheVendorsOwnIsFineAsItIs) {
  const test::TemporaryFolder folder;
  const auto app = test::makeApp(folder.path());
  const auto root = test::makeRoot("Apple Root CA");
  const auto issuer = test::makeCrossSigned(test::makeRoot("Apple Code Signing"), root);
  const test::Family own{test::makeLeaf(issuer, {.commonName = "Software Signing",
                                                 .organizationalUnit = "59GAB85EFG"}),
                         issuer, root};
  fs::create_directories(app / "Frameworks");
  test::linkImage(app / "Frameworks/libswiftCore.dylib", {.linkerArguments = {"-dylib"}});
  ASSERT_TRUE(toolchain::sign({.code = app / "Frameworks/libswiftCore.dylib",
                               .identity = own.leaf.sha1(),
                               .keychain = test::writeKeychain(folder / "own.pem", own),
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

}  // namespace

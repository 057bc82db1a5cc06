// What signed code says about itself, apart from what whole runs of codesign show.
#include "tests/support/AppFixture.h"
#include "tests/support/Test.h"
#include "tests/toolchain/support/Resigning.h"
#include "toolchain/display/SignatureFacts.h"
#include "toolchain/display/SigningInputs.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace {

/// Slices can be signed with different entitlements, and with the DER form alone.
TEST(DisplayTest, FactsAndInputsAreThoseOfTheDeviceSlice) {
  const TemporaryFolder folder;
  const fs::path app = makeApp(folder.path());
  const Dictionary entitlements = {{"beta-reports-active", true}};
  ASSERT_TRUE(toolchain::sign({.code = app,
                               .identity = signingFamily().leaf.sha1(),
                               .keychain = writeKeychain(folder / "keychain.pem"),
                               .entitlements = writePlist(folder / "given", entitlements)}));
  auto other = takeApart(app / "Example", 0);
  other.blobs.erase(toolchain::slot::kEntitlements);
  other.blobs.erase(toolchain::slot::kEntitlementsDER);
  for (auto& fields : other.directories) fields.teamIdentifier = "OTHER12345";
  putTogether(app / "Example", other, signingFamily(), 0);
  for (const bool hasText : {true, false}) {
    auto device = takeApart(app / "Example", 1);
    if (!hasText) device.blobs.erase(toolchain::slot::kEntitlements);
    putTogether(app / "Example", device, signingFamily(), 1);
    const auto inputs = toolchain::signingInputs(app);
    ASSERT_TRUE(inputs) << problemOf(inputs);
    EXPECT_EQ(inputs->entitlements, plist(entitlements)) << hasText;
    const auto facts = toolchain::signatureFacts(app);
    ASSERT_TRUE(facts) << problemOf(facts);
    EXPECT_EQ(facts->teamIdentifier, "ABCDE12345");
    EXPECT_TRUE(facts->entitlements == entitlements) << hasText;
  }
}

}  // namespace

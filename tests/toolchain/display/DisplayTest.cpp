#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/format/PropertyList.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/toolchain/support/Resigning.h"
#include "toolchain/display/SignatureFacts.h"
#include "toolchain/display/SignatureReport.h"
#include "toolchain/display/SigningInputs.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace {

namespace fs = std::filesystem;
using foundation::bytesOf;
using foundation::Dictionary;
using foundation::Value;
using testing::Contains;
using testing::HasSubstr;

constexpr const char* kEntitlements =
    "<?xml version=\"1.0\"?>\n<plist><dict>\n <key>beta-reports-active</key> "
    "<true/>\n</dict></plist>";

class DisplayTest : public testing::Test {
 protected:
  void sign(const fs::path& code, const std::string& entitlements = "") const {
    toolchain::SignOptions options;
    options.code = code;
    options.identity = test::signingFamily().leaf.sha1();
    options.keychain = test::writeKeychain(folder_ / "keychain.pem");
    options.force = true;
    options.signingTime = std::chrono::sys_days{std::chrono::year{2026} / 3 / 9};
    if (!entitlements.empty()) options.entitlements = folder_.write("given", entitlements);
    const auto done = toolchain::sign(options);
    ASSERT_TRUE(done) << done.error().localizedDescription();
  }
  [[nodiscard]] fs::path makeApp(const test::AppOptions& options = {}) const {
    return test::makeApp(folder_.path(), options);
  }
  static std::vector<std::string> linesOf(const fs::path& code, int verbosity) {
    const auto lines = toolchain::signatureReport({.code = code, .verbosity = verbosity});
    EXPECT_TRUE(lines) << lines.error().localizedDescription();
    return lines ? *lines : std::vector<std::string>();
  }
  static toolchain::SigningInputs inputsOf(const fs::path& code) {
    const auto inputs = toolchain::signingInputs(code);
    EXPECT_TRUE(inputs) << inputs.error().localizedDescription();
    return inputs ? *inputs : toolchain::SigningInputs();
  }
  static Value parsed(const std::string& text) {
    return *foundation::PropertyList::parse(bytesOf(text));
  }

  test::TemporaryFolder folder_;
};

TEST_F(DisplayTest, InputsOfSignedCodeAreWhatWasSigned) {
  const fs::path app = makeApp();
  sign(app, kEntitlements);
  const auto inputs = inputsOf(app);
  EXPECT_TRUE(inputs.isSigned);
  EXPECT_EQ(inputs.entitlements, kEntitlements);
  const Value rules = parsed(inputs.resourceRules);
  const auto defaults = toolchain::defaultResourceRules(toolchain::BundleShape::flat);
  EXPECT_EQ(*toolchain::parseResourceRules(*rules.find("rules")), defaults.rules);
  EXPECT_EQ(*toolchain::parseResourceRules(*rules.find("rules2")), defaults.rules2);

  sign(app);
  EXPECT_EQ(parsed(inputsOf(app).entitlements), Value(Dictionary()));
}

/// Slices can be signed with different entitlements, and with the DER form alone.
TEST_F(DisplayTest, FactsAndInputsAreThoseOfTheDeviceSlice) {
  const fs::path app = makeApp();
  sign(app, kEntitlements);
  auto parts = test::takeApart(app / "Example");
  parts.blobs.erase(toolchain::slot::kEntitlements);
  parts.blobs.erase(toolchain::slot::kEntitlementsDER);
  for (auto& fields : parts.directories) fields.teamIdentifier = "OTHER12345";
  test::putTogether(app / "Example", parts, test::signingFamily());
  EXPECT_EQ(inputsOf(app).entitlements, kEntitlements);
  const auto facts = toolchain::signatureFacts(app);
  ASSERT_TRUE(facts) << facts.error().localizedDescription();
  EXPECT_EQ(facts->teamIdentifier, "ABCDE12345");
  EXPECT_EQ(Value(facts->entitlements), parsed(kEntitlements));

  parts = test::takeApart(app / "Example", 1);
  parts.blobs.erase(toolchain::slot::kEntitlements);
  test::putTogether(app / "Example", parts, test::signingFamily(), 1);
  EXPECT_EQ(parsed(inputsOf(app).entitlements), parsed(kEntitlements));
  EXPECT_EQ(Value(toolchain::signatureFacts(app)->entitlements), parsed(kEntitlements));
}

/// A build that was made without signing is described by its profile.
TEST_F(DisplayTest, InputsOfUnsignedCodeComeFromItsProfile) {
  test::AppOptions options;
  options.profile.bundleIdentifier = "*";
  options.info = {{"CFBundleIdentifier", "com.example.exact"}};
  const fs::path app = makeApp(options);
  const auto failure = toolchain::signatureReport({.code = app});
  ASSERT_FALSE(failure);
  EXPECT_EQ(failure.error().localizedDescription(), "code object is not signed at all");

  const auto inputs = inputsOf(app);
  EXPECT_FALSE(inputs.isSigned);
  const Value entitlements = parsed(inputs.entitlements);
  ASSERT_TRUE(entitlements.find("application-identifier"));
  EXPECT_EQ(*entitlements.find("application-identifier"), Value("ABCDE12345.com.example.exact"));
  EXPECT_TRUE(parsed(inputs.resourceRules).find("rules2"));

  fs::remove(app / "embedded.mobileprovision");
  EXPECT_EQ(parsed(inputsOf(app).entitlements), Value(Dictionary()));
}

/// What only the linker signed says nothing about entitlements.
TEST_F(DisplayTest, TheLinkersSignatureDoesNotCount) {
  const fs::path app = makeApp();
  test::linkImage(app / "Example", "arm64", {"-adhoc_codesign"});
  EXPECT_THAT(linesOf(app, 1), Contains(HasSubstr("(adhoc,linker-signed)")));
  EXPECT_TRUE(parsed(inputsOf(app).entitlements).find("application-identifier"));
}

}  // namespace

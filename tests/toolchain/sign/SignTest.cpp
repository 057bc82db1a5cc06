// Signing, apart from what whole runs of codesign show.
#include "tests/support/AppFixture.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/display/SignatureReport.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/verify/Verification.h"

namespace {

class SignTest : public testing::Test {
 protected:
  /// Signs a loose file with this family's identity; returns what is wrong.
  [[nodiscard]] std::string problemWith(const Family& family) const {
    return problemOf(toolchain::sign({.code = file_,
                                      .identity = family.leaf.sha1(),
                                      .keychain = writeKeychain(folder_ / "keychain", family)}));
  }

  const TemporaryFolder folder_;
  const fs::path file_ = folder_.write("code", executableCode());
};

/// Whoever may write to the tree puts a link into it once the bundles have been found.
TEST_F(SignTest, ALinkThatIsPutIntoTheTreeIsNotFollowed) {
  const fs::path app = writeBundle(folder_ / "X.app", "com.example.x");
  writeBundle(app / "PlugIns/E.appex", "com.example.e");
  const fs::path victim = folder_ / "victim";
  writeBundle(victim / "E.appex", "com.example.e");
  const auto before = snapshot(victim);
  toolchain::SignOptions options{.code = app, .identity = "-"};
  options.note = [&](const std::string&) {
    fs::rename(app / "PlugIns", folder_ / "moved");
    fs::create_directory_symlink(victim, app / "PlugIns");
  };
  EXPECT_THAT(problemOf(toolchain::sign(options)), HasSubstr("PlugIns/E.appex"));
  EXPECT_TRUE(snapshot(victim) == before);
}

/// The name of the root decides about the requirement; that it is met takes the root itself.
TEST_F(SignTest, AHomeMadeDeveloperIdentitySignsButDoesNotMeetItsRequirement) {
  ASSERT_EQ(problemWith(makeDeveloperFamily()), "");
  EXPECT_THAT(*toolchain::requirementsReport(file_),
              ElementsAre(HasSubstr("anchor apple generic and certificate leaf[subject.CN] = ")));
  EXPECT_EQ(toolchain::verify({.code = file_}).status, 3);
}

/// Certificates that do not fit the space which the platform's tool reserves.
TEST_F(SignTest, LargeCertificatesGetMoreSpace) {
  ASSERT_EQ(problemWith(makeFamily({.organizations = std::vector(500, std::string(60, 'a'))})), "");
  EXPECT_EQ(toolchain::verify({.code = file_}).status, 0);
}

}  // namespace

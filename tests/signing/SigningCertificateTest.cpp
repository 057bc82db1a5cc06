#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing/SigningCertificate.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class SigningCertificateTest : public testing::Test {
 protected:
  std::string write(const std::string& name, std::string_view content) const {
    const fs::path path = folder_.write(name, content);
    fs::permissions(path, fs::perms(0600));
    return path;
  }
  /// The common name of the chosen certificate, or why there is none.
  std::string chosen(const std::optional<std::string>& keychain,
                     const std::vector<foundation::Data>& certificates) const {
    const auto file = write(
        "embedded.mobileprovision",
        test::makeProvisioningProfile(
            test::ProfileOptions{.developerCertificates = certificates}.dictionary(), family_.root)
            .text());
    const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(file, keychain);
    const auto certificate = certificateToSignWith(*profile, keychain);
    if (!certificate) return certificate.error().localizedDescription();
    return (*certificate)->commonName().value_or("");
  }
  std::string chosen(const std::optional<std::string>& keychain) const {
    return chosen(keychain, {family_.leaf.der()});
  }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  test::Family family_ = test::makeFamily({.commonName = "Ours"});
};

TEST_F(SigningCertificateTest, WhyThereIsNoneIsSaid) {
  const std::string library = folder_ / "Library/Keychains";
  EXPECT_THAT(chosen({}), HasSubstr("no keychain was named, and there is no folder " + library));
  fs::create_directories(library);
  EXPECT_THAT(chosen({}), HasSubstr(library + " holds no private key, and the profile is for "
                                              "\"Ours\""));
  EXPECT_THAT(chosen(folder_ / "missing.p12"), HasSubstr("missing.p12: No such file"));
  const auto other = write("other.pem", test::makeFamily({.commonName = "Theirs"}).pem());
  EXPECT_EQ(chosen(other),
            other + " holds 1 private key (\"Theirs\"), and the profile is for \"Ours\"");
  const auto p12 =
      write("ours.p12", test::makePKCS12(family_.leaf, {}, {.passphrase = "right"}).text());
  EXPECT_THAT(chosen(p12), HasSubstr("ours.p12: cannot be opened without a passphrase"));
  write("ours.p12.password", "wr0ng-guess");
  EXPECT_THAT(chosen(p12), HasSubstr("wrong passphrase"));
  EXPECT_THAT(chosen(p12), Not(HasSubstr("wr0ng-guess")));
  EXPECT_THAT(chosen(other, {}), HasSubstr("the profile lists no certificate"));
  EXPECT_EQ(chosen(write("ours.pem", family_.pem())), "Ours");
}

/// The first certificates of the profile are an attacker's, who knows our public key.
TEST_F(SigningCertificateTest, ForgedCertificatesAreNotChosen) {
  const auto attacker = test::makeIntermediate(test::makeRoot());
  const auto forged = test::makeForged(family_.leaf, attacker, "Forged").der();
  const auto selfIssued =
      test::makeForged(family_.leaf, test::makeLeaf(attacker, {.commonName = "Self"}), "Self")
          .der();
  const std::string issuers = family_.intermediate.certificatePEM() + family_.root.certificatePEM();
  const auto whole = write("whole.pem", family_.pem());
  const auto keyAndIssuers = write("issuers.pem", family_.leaf.keyPEM() + issuers);
  const auto keyAlone = write("alone.pem", family_.leaf.keyPEM());
  for (const auto& keychain : {whole, keyAndIssuers}) {
    EXPECT_EQ(chosen(keychain, {forged, selfIssued, family_.leaf.der()}), "Ours");
    EXPECT_THAT(chosen(keychain, {forged}), HasSubstr("the profile's certificate \"Forged\" ("));
  }
  EXPECT_THAT(chosen(whole, {forged}), HasSubstr("the keychain has \"Ours\" ("));
  EXPECT_THAT(chosen(keyAlone), HasSubstr("no certificate of that issuer is at hand"));
  write("Library/Keychains/issuers.pem", issuers);
  EXPECT_EQ(chosen(keyAlone), "Ours");
}

}  // namespace

#include "signing/SigningCertificate.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

class SigningCertificateTest : public testing::Test {
 protected:
  std::string write(const std::string& name, std::string_view content) const {
    const auto path = folder_.write(name, content);
    fs::permissions(path, fs::perms(0600));
    return path;
  }
  /// The common name of the chosen certificate, or why there is none.
  std::string chosen(const std::optional<std::string>& keychain,
                     std::optional<std::vector<Data>> certificates = {}) const {
    ProfileOptions options;
    options.developerCertificates = certificates.value_or(std::vector{family_.leaf.der()});
    const auto file =
        write("p", makeProvisioningProfile(options.dictionary(), family_.root).text());
    const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(file, keychain);
    const auto certificate = certificateToSignWith(*profile, keychain);
    return certificate ? (*certificate)->commonName().value_or("") : problemOf(certificate);
  }

  const TemporaryFolder folder_;
  const ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  const Family family_ = makeFamily({.commonName = "Ours"});
};

TEST_F(SigningCertificateTest, WhyThereIsNoneIsSaid) {
  const std::string library = folder_ / "Library/Keychains";
  EXPECT_THAT(chosen({}), HasSubstr("no keychain was named, and there is no folder " + library));
  fs::create_directories(library);
  EXPECT_THAT(chosen({}), HasSubstr(library + " holds no private key, and the profile is for "
                                              "\"Ours\""));
  EXPECT_THAT(chosen(folder_ / "missing.p12"), HasSubstr("missing.p12: No such file"));
  const auto other = write("other.pem", makeFamily({.commonName = "Theirs"}).pem());
  EXPECT_EQ(chosen(other),
            other + " holds 1 private key (\"Theirs\"), and the profile is for \"Ours\"");
  const auto p12 = write("ours.p12", makePKCS12(family_.leaf, {}, {.passphrase = "right"}).text());
  EXPECT_THAT(chosen(p12), HasSubstr("ours.p12: cannot be opened without a passphrase"));
  write("ours.p12.password", "wr0ng-guess");
  EXPECT_THAT(chosen(p12), AllOf(HasSubstr("wrong passphrase"), Not(HasSubstr("wr0ng-guess"))));
  EXPECT_THAT(chosen(other, std::vector<Data>()), HasSubstr("the profile lists no certificate"));
  EXPECT_EQ(chosen(write("ours.pem", family_.pem())), "Ours");
}

/// The first certificates of the profile are an attacker's, who knows our public key.
TEST_F(SigningCertificateTest, ForgedCertificatesAreNotChosen) {
  const auto attacker = makeIntermediate(makeRoot());
  const auto forged = makeForged(family_.leaf, attacker, "Forged").der();
  const auto selfIssued =
      makeForged(family_.leaf, makeLeaf(attacker, {.commonName = "Self"}), "Self").der();
  const std::string issuers = family_.intermediate.certificatePEM() + family_.root.certificatePEM();
  const auto whole = write("whole.pem", family_.pem());
  const auto keyAndIssuers = write("issuers.pem", family_.leaf.keyPEM() + issuers);
  const auto keyAlone = write("alone.pem", family_.leaf.keyPEM());
  for (const auto& keychain : {whole, keyAndIssuers}) {
    EXPECT_EQ(chosen(keychain, {{forged, selfIssued, family_.leaf.der()}}), "Ours");
    EXPECT_THAT(chosen(keychain, {{forged}}), HasSubstr("the profile's certificate \"Forged\" ("));
  }
  EXPECT_THAT(chosen(whole, {{forged}}), HasSubstr("the keychain has \"Ours\" ("));
  EXPECT_THAT(chosen(keyAlone), HasSubstr("no certificate of that issuer is at hand"));
  write("Library/Keychains/issuers.pem", issuers);
  EXPECT_EQ(chosen(keyAlone), "Ours");
}

}  // namespace

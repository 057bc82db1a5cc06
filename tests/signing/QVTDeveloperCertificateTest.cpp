#include "signing/QVTDeveloperCertificate.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

TEST(QVTDeveloperCertificate, TheKeyInItsKeychainMakesItASigningIdentity) {
  const TemporaryFolder folder;
  const auto leaf = makeLeaf(makeRoot(), {.commonName = "Müller", .organizations = {"A", "B"}});
  const std::string keychain = folder.write("own.pem", leaf.keyPEM());
  fs::permissions(keychain, fs::perms::owner_all);
  const auto signing = QVTDeveloperCertificate::initWithDataKeychainPath(leaf.der(), keychain);
  EXPECT_EQ(signing->keychainPath(), keychain);
  EXPECT_EQ(signing->organizationName(), "A");
  EXPECT_EQ(signing->subjectSummary(), "Müller");
  EXPECT_EQ(signing->description(),
            "Müller, private key available 1, signning identity " + leaf.sha1());
  const auto other =
      QVTDeveloperCertificate::initWithDataKeychainPath(leaf.der(), folder / "missing.keychain");
  EXPECT_EQ(other->description(), "Müller, private key available 0, signning identity (null)");
  EXPECT_FALSE(QVTDeveloperCertificate::initWithData(Data(std::string("no certificate"))));
}

}  // namespace

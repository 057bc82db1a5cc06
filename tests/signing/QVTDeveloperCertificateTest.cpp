#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing/QVTDeveloperCertificate.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Data;
using testing::Optional;

class QVTDeveloperCertificateTest : public testing::Test {
 protected:
  std::string keychain(const std::string& name, const std::string& content) const {
    const auto path = folder_.write(name, content);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path.string();
  }

  test::TemporaryFolder folder_;
  // No keychain of the user who runs the tests.
  test::ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  test::MadeIdentity leaf_ = test::makeLeaf(
      test::makeRoot(), {.commonName = "iPhone Distribution: Müller", .organizations = {"A", "B"}});
};

TEST_F(QVTDeveloperCertificateTest, KeyInTheGivenKeychainMakesItASigningIdentity) {
  const auto path = keychain("login.pem", leaf_.keyPEM());
  const auto certificate = QVTDeveloperCertificate::initWithDataKeychainPath(leaf_.der(), path);
  ASSERT_TRUE(certificate);
  EXPECT_TRUE(certificate->isPrivateKeyAvailable());
  EXPECT_THAT(certificate->signingIdentity(), Optional(leaf_.sha1()));
  EXPECT_THAT(certificate->keychainPath(), Optional(path));
  EXPECT_EQ(
      certificate->description(),
      "iPhone Distribution: Müller, private key available 1, signning identity " + leaf_.sha1());
}

TEST_F(QVTDeveloperCertificateTest, NamesAreReadWithoutAKeyToo) {
  const auto other = keychain("other.pem", test::makeRoot().keyPEM());
  for (const auto& path : {std::optional<std::string>(), std::optional(other),
                           std::optional((folder_ / "missing.keychain").string())}) {
    SCOPED_TRACE(path.value_or("default keychains"));
    const auto certificate = QVTDeveloperCertificate::initWithDataKeychainPath(leaf_.der(), path);
    ASSERT_TRUE(certificate);
    EXPECT_FALSE(certificate->isPrivateKeyAvailable());
    EXPECT_EQ(certificate->signingIdentity(), std::nullopt);
    EXPECT_THAT(certificate->commonName(), Optional(std::string("iPhone Distribution: Müller")));
    EXPECT_EQ(certificate->subjectSummary(), certificate->commonName());
    EXPECT_THAT(certificate->organizationName(), Optional(std::string("A")));
    EXPECT_EQ(certificate->description(),
              "iPhone Distribution: Müller, private key available 0, signning identity (null)");
  }
}

TEST_F(QVTDeveloperCertificateTest, DefaultKeychainsAreSearchedWithoutAPath) {
  keychain("Library/Keychains/login.pem", leaf_.keyPEM());
  const auto certificate = QVTDeveloperCertificate::initWithData(leaf_.der());
  ASSERT_TRUE(certificate);
  EXPECT_THAT(certificate->signingIdentity(), Optional(leaf_.sha1()));
  EXPECT_EQ(certificate->keychainPath(), std::nullopt);
}

TEST_F(QVTDeveloperCertificateTest, OtherDataIsNoCertificate) {
  EXPECT_FALSE(QVTDeveloperCertificate::initWithData(Data(std::string("no certificate"))));
  EXPECT_FALSE(QVTDeveloperCertificate::initWithData(Data()));
}

TEST_F(QVTDeveloperCertificateTest, DigitsAreUpperCaseAndPadded) {
  EXPECT_EQ(QVTDeveloperCertificate::hexStringFromData(Data(std::string("\x0a\xff"))), "0AFF");
  const auto digest = QVTIPASHA1DigestCreate(foundation::bytesOf("abc"));
  EXPECT_EQ(QVTDeveloperCertificate::hexStringFromData(digest),
            "A9993E364706816ABA3E25717850C26C9CD0D89D");
}

}  // namespace

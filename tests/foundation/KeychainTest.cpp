#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/Keychain.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

namespace fs = std::filesystem;
using test::PKCS12Options;
using testing::HasSubstr;
using testing::Not;

class KeychainTest : public testing::Test {
 protected:
  fs::path write(const fs::path& name, std::string_view content, fs::perms mode = kPrivate) const {
    const fs::path path = folder_.write(name, content);
    fs::permissions(path, mode);
    return path;
  }
  static bool holdsKeyOf(const fs::path& path, const test::MadeIdentity& identity) {
    const auto keychain = Keychain::open(path);
    EXPECT_TRUE(keychain) << (keychain ? "" : keychain.error().localizedDescription());
    return keychain && keychain->identityForCertificate(identity.certificate()).has_value();
  }

  static constexpr auto kPrivate = fs::perms::owner_read | fs::perms::owner_write;
  static constexpr auto kPublic = kPrivate | fs::perms::group_read | fs::perms::others_read;
  test::TemporaryFolder folder_;
  test::Family family_ = test::makeFamily();
};

TEST_F(KeychainTest, PEMFileHoldsAnyNumberOfKeysAndCertificates) {
  const auto other = test::makeLeaf(family_.intermediate, {.key = test::KeyKind::rsa});
  const auto path =
      write("all.pem", "Bag Attributes\n    friendlyName: M\xfcller\n" + family_.pem() +
                           "-----BEGIN X509 CRL-----\nAAAA\n-----END X509 CRL-----\n" +
                           other.certificatePEM() + "\r\n" + other.keyPEM());
  const auto keychain = Keychain::open(path);
  ASSERT_TRUE(keychain) << keychain.error().localizedDescription();
  EXPECT_EQ(keychain->certificates().size(), 4u);
  EXPECT_EQ(keychain->privateKeys().size(), 2u);
  ASSERT_EQ(keychain->identities().size(), 2u);
  EXPECT_EQ(keychain->identities()[0].certificate.der(), family_.leaf.der());
  EXPECT_EQ(keychain->identities()[1].certificate.der(), other.der());
  EXPECT_FALSE(keychain->identityForCertificate(family_.root.certificate()));
}

TEST_F(KeychainTest, KeyAloneMakesAnIdentityOfAGivenCertificate) {
  const auto path = write("key.pem", family_.leaf.keyPEM());
  EXPECT_TRUE(holdsKeyOf(path, family_.leaf));
  EXPECT_TRUE(Keychain::open(path)->identities().empty());
}

TEST_F(KeychainTest, PKCS12OpensInEveryEncryptionAndWithEveryKindOfPassphrase) {
  using Encryption = PKCS12Options::Encryption;
  for (const auto encryption : {Encryption::modern, Encryption::old}) {
    for (const auto& [passphrase, passwordFile] :
         std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>>{
             {std::nullopt, std::nullopt},
             {"", std::nullopt},
             {"", "\n"},
             {"päss word", "päss word"},
             {"päss word", "päss word\r\nsecond line\n"},
         }) {
      SCOPED_TRACE(testing::Message() << "old: " << (encryption == Encryption::old) << ", "
                                      << passphrase.value_or("none"));
      const auto p12 = test::makePKCS12(family_.leaf, {family_.intermediate, family_.root},
                                        {.encryption = encryption, .passphrase = passphrase});
      const auto path = write("identity.p12", p12.text());
      fs::remove(folder_ / "identity.p12.password");
      if (passwordFile) write("identity.p12.password", *passwordFile);
      ASSERT_TRUE(holdsKeyOf(path, family_.leaf));
      EXPECT_EQ(Keychain::open(path)->certificates().size(), 3u);
    }
  }
}

TEST_F(KeychainTest, EncryptedKeyInPEMUsesThePasswordFile) {
  const auto path = write("key.pem", family_.leaf.keyPEM("secret"));
  const auto locked = Keychain::open(path);
  ASSERT_FALSE(locked);
  EXPECT_THAT(locked.error().localizedDescription(), HasSubstr("block 1 (ENCRYPTED PRIVATE KEY)"));
  write("key.pem.password", "secret\n");
  EXPECT_TRUE(holdsKeyOf(path, family_.leaf));
}

TEST_F(KeychainTest, PassphraseStaysOutOfTheErrorText) {
  const auto p12 = test::makePKCS12(family_.leaf, {}, {.passphrase = "right"});
  const auto path = write("identity.p12", p12.text());
  write("identity.p12.password", "wr0ng-guess\n");
  const auto keychain = Keychain::open(path);
  ASSERT_FALSE(keychain);
  EXPECT_THAT(keychain.error().localizedDescription(), HasSubstr(path.string()));
  EXPECT_THAT(keychain.error().description(), Not(HasSubstr("wr0ng-guess")));
}

TEST_F(KeychainTest, FolderIsReadByNameAndUnreadableFilesArePassedOver) {
  const auto second = test::makeLeaf(family_.intermediate);
  write("keys/2.p12", test::makePKCS12(second).text());
  write("keys/1.pem", family_.leaf.certificatePEM() + family_.leaf.keyPEM());
  write("keys/3.cer", family_.leaf.der().text());
  write("keys/4.CRT", family_.root.certificatePEM());
  write("keys/5.der", family_.intermediate.der().text());
  write("keys/0.pem", "-----BEGIN CERTIFICATE-----\nnonsense\n-----END CERTIFICATE-----\n");
  write("keys/.hidden.pem", family_.root.keyPEM());
  write("keys/notes.txt", family_.root.keyPEM());
  fs::create_directory(folder_ / "keys/folder.pem");
  testing::internal::CaptureStderr();
  const auto keychain = Keychain::open(folder_ / "keys");
  const std::string log = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(keychain);
  ASSERT_EQ(keychain->certificates().size(), 4u) << "the leaf is listed twice";
  EXPECT_EQ(keychain->certificates()[0].der(), family_.leaf.der());
  EXPECT_EQ(keychain->certificates()[1].der(), second.der());
  EXPECT_EQ(keychain->identities().size(), 2u);
  EXPECT_EQ(keychain->privateKeys().size(), 2u);
  EXPECT_THAT(log, HasSubstr("keys/0.pem"));
  EXPECT_EQ(std::ranges::count(log, '\n'), 2) << log;
}

TEST_F(KeychainTest, KeyThatOthersCanReadIsUsedWithOneWarning) {
  const auto path = write("open.pem", family_.leaf.keyPEM("secret"), kPublic);
  write("open.pem.password", "secret", kPublic);
  write("certificates.pem", family_.root.certificatePEM(), kPublic);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(holdsKeyOf(path, family_.leaf));
  EXPECT_TRUE(holdsKeyOf(path, family_.leaf));
  EXPECT_TRUE(Keychain::open(folder_ / "certificates.pem"));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("open.pem holds a private key"));
  EXPECT_THAT(log, HasSubstr("open.pem.password holds a passphrase"));
  EXPECT_EQ(std::ranges::count(log, '\n'), 2) << log;
}

TEST_F(KeychainTest, DamagedFilesAreErrorsThatNameThem) {
  const std::string p12(test::makePKCS12(family_.leaf).text());
  const std::string pem = family_.leaf.keyPEM();
  std::string flipped = p12;
  flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 1);
  for (const auto& [name, content] : std::vector<std::pair<std::string, std::string>>{
           {"empty", ""},
           {"text", "hello"},
           {"PKCS #12 cut off", p12.substr(0, p12.size() / 2)},
           {"PKCS #12 with a changed byte", flipped},
           {"indefinite length only", "\x30\x80"},
           {"key block without an end", pem.substr(0, pem.size() / 2)},
           {"certificate of nonsense",
            "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"},
       }) {
    SCOPED_TRACE(name);
    const auto keychain = Keychain::open(write("damaged", content));
    ASSERT_FALSE(keychain);
    EXPECT_THAT(keychain.error().localizedDescription(), HasSubstr("damaged"));
  }
  EXPECT_FALSE(Keychain::open(folder_ / "missing.pem"));
}

TEST_F(KeychainTest, FilesThatAskForTooManyRoundsAreRefused) {
  using test::SlowPart;
  for (const auto part : {SlowPart::integrityCheck, SlowPart::contents, SlowPart::key,
                          SlowPart::keyByScrypt, SlowPart::keyInPEM}) {
    const auto complaintOf = [&](std::uint64_t rounds) {
      const auto opened = Keychain::open(write("slow", test::makeSlowKeyFile(part, rounds)));
      return opened ? "" : opened.error().localizedDescription();
    };
    EXPECT_THAT(complaintOf(10'002'432),
                testing::MatchesRegex(".*/slow: .*asks for 10002432 rounds of encryption; "
                                      "at most 10000000 are done for one file"));
    EXPECT_THAT(complaintOf(8192), Not(HasSubstr("rounds")));
  }
}

TEST_F(KeychainTest, FileTooLargeForAKeyIsRefusedUnread) {
  const auto path = write("large.pem", family_.pem());
  fs::resize_file(path, 16 * 1024 * 1024 + 1);
  const auto keychain = Keychain::open(path);
  ASSERT_FALSE(keychain);
  EXPECT_THAT(keychain.error().localizedDescription(), HasSubstr("16777217 bytes"));
}

TEST_F(KeychainTest, DefaultSearchListIsTheFolderInTheHome) {
  const test::ScopedEnvironment home("HOME", folder_.path().c_str());
  EXPECT_TRUE(Keychain::defaultSearchList().certificates().empty());
  write("Library/Keychains/identity.pem", family_.pem());
  EXPECT_EQ(Keychain::defaultSearchList().identities().size(), 1u);
}

}  // namespace
}  // namespace foundation

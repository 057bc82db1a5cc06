#include <sys/inotify.h>

#include "foundation/crypto/Keychain.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

using Encryption = PKCS12Options::Encryption;

class KeychainTest : public testing::Test {
 protected:
  fs::path write(const fs::path& name, std::string_view content,
                 fs::perms mode = fs::perms(0600)) const {
    const fs::path path = folder_.write(name, keepForFuzzing("Keychain", content));
    fs::permissions(path, mode);
    return path;
  }
  bool holdsTheLeafsKey(const fs::path& path) const {
    const auto keychain = Keychain::open(path);
    EXPECT_EQ(problemOf(keychain), "");
    return keychain && keychain->identityForCertificate(family_.leaf.certificate());
  }
  static std::string problemWith(const fs::path& path) { return problemOf(Keychain::open(path)); }
  std::string p12(const PKCS12Options& options = {}) const {
    return std::string(
        makePKCS12(family_.leaf, {family_.intermediate, family_.root}, options).text());
  }

  TemporaryFolder folder_;
  Family family_ = makeFamily();
};

TEST_F(KeychainTest, PEMFileHoldsAnyNumberOfKeysAndCertificates) {
  const auto other = makeLeaf(family_.intermediate, {.key = KeyKind::rsa});
  const auto path =
      write("all.pem", "Bag Attributes\n    friendlyName: M\xfcller\n" + family_.pem() +
                           "-----BEGIN X509 CRL-----\nAAAA\n-----END X509 CRL-----\n" +
                           other.certificatePEM() + "\r\n" + other.keyPEM());
  const auto keychain = Keychain::open(path);
  ASSERT_EQ(problemOf(keychain), "");
  EXPECT_EQ(keychain->certificates().size(), 4u);
  ASSERT_EQ(keychain->identities().size(), 2u);
  EXPECT_EQ(keychain->identities()[0].certificate.der(), family_.leaf.der());
  EXPECT_EQ(keychain->identities()[1].certificate.der(), other.der());
  EXPECT_FALSE(keychain->identityForCertificate(family_.root.certificate()));
}

TEST_F(KeychainTest, KeyAloneMakesAnIdentityOfAGivenCertificate) {
  const auto path = write("key.pem", family_.leaf.keyPEM("secret"));
  EXPECT_THAT(problemWith(path), HasSubstr("block 1 (ENCRYPTED PRIVATE KEY)"));
  write("key.pem.password", "secret\n");
  EXPECT_TRUE(holdsTheLeafsKey(path));
  EXPECT_TRUE(Keychain::open(path)->identities().empty());
}

TEST_F(KeychainTest, PKCS12OpensInEveryEncryptionAndWithEveryKindOfPassphrase) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {std::nullopt, std::nullopt},
      {"", std::nullopt},
      {"", "\n"},
      {"päss word", "päss word\r\nsecond line\n"}};
  for (const auto encryption : {Encryption::modern, Encryption::old}) {
    for (const auto& [passphrase, passwordFile] : cases) {
      SCOPED_TRACE(passphrase.value_or("none"));
      const auto path =
          write("identity.p12", p12({.encryption = encryption, .passphrase = passphrase}));
      if (passwordFile) write("identity.p12.password", *passwordFile);
      ASSERT_TRUE(holdsTheLeafsKey(path));
      EXPECT_EQ(Keychain::open(path)->certificates().size(), 3u);
      fs::remove(folder_ / "identity.p12.password");
    }
  }
}

TEST_F(KeychainTest, FolderIsReadByNameAndUnreadableFilesArePassedOver) {
  const ScopedEnvironment home("HOME", folder_.path().c_str());
  EXPECT_TRUE(Keychain::defaultSearchList().certificates().empty());
  const auto second = makeLeaf(family_.intermediate);
  const std::pair<const char*, std::string> files[] = {
      {"2.p12", std::string(makePKCS12(second).text())},
      {"1.pem", family_.leaf.certificatePEM() + family_.leaf.keyPEM()},
      {"3.cer", std::string(family_.leaf.der().text())},
      {"4.CRT", family_.root.certificatePEM()},
      {"5.der", std::string(family_.intermediate.der().text())},
      {"0.pem", "-----BEGIN CERTIFICATE-----\nnonsense\n-----END CERTIFICATE-----\n"},
      {".hidden.pem", family_.root.keyPEM()},
      {"notes.txt", family_.root.keyPEM()},
      {"folder.pem/file", ""}};
  for (const auto& [name, content] : files) write(fs::path("Library/Keychains") / name, content);
  std::optional<Keychain> keychain;
  const std::string log = logOf([&] { keychain = Keychain::defaultSearchList(); });
  ASSERT_EQ(keychain->certificates().size(), 4u) << "the leaf is listed twice";
  EXPECT_EQ(keychain->certificates()[0].der(), family_.leaf.der());
  EXPECT_EQ(keychain->certificates()[1].der(), second.der());
  EXPECT_EQ(keychain->identities().size(), 2u);
  EXPECT_EQ(keychain->privateKeys().size(), 2u);
  EXPECT_THAT(log, HasSubstr("Keychains/0.pem"));
  EXPECT_EQ(std::ranges::count(log, '\n'), 2) << log;
}

TEST_F(KeychainTest, KeyThatOthersCanReadIsUsedWithOneWarning) {
  constexpr fs::perms kPublic{0644};
  const auto path = write("open.pem", family_.leaf.keyPEM("secret"), kPublic);
  write("open.pem.password", "secret", kPublic);
  write("certificates.pem", family_.root.certificatePEM(), kPublic);
  const std::string log = logOf([&] {
    EXPECT_TRUE(holdsTheLeafsKey(path));
    EXPECT_TRUE(holdsTheLeafsKey(path));
    EXPECT_TRUE(Keychain::open(folder_ / "certificates.pem"));
  });
  EXPECT_THAT(log, HasSubstr("open.pem holds a private key"));
  EXPECT_THAT(log, HasSubstr("open.pem.password holds a passphrase"));
  EXPECT_EQ(std::ranges::count(log, '\n'), 2) << log;
}

TEST_F(KeychainTest, DamagedFilesAreErrorsThatNameThem) {
  const std::string whole = p12({.passphrase = "right"});
  const std::string pem = family_.leaf.keyPEM();
  std::string flipped = whole;
  flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 1);
  write("damaged.password", "wr0ng-guess\n");
  for (const std::string& content :
       {std::string(), std::string("hello"), whole, whole.substr(0, whole.size() / 2), flipped,
        std::string("\x30\x80"), pem.substr(0, pem.size() / 2),
        std::string("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n")}) {
    const auto keychain = Keychain::open(write("damaged", content));
    EXPECT_THAT(problemOf(keychain), HasSubstr(folder_ / "damaged")) << content;
    EXPECT_THAT(keychain.error().description(), Not(HasSubstr("wr0ng-guess")));
  }
  EXPECT_THAT(problemWith(folder_ / "missing.pem"), HasSubstr("missing.pem"));
  const auto large = write("large.pem", family_.pem());
  fs::resize_file(large, 16 * 1024 * 1024 + 1);
  EXPECT_THAT(problemWith(large), HasSubstr("16777217 bytes"));
}

TEST_F(KeychainTest, TheCauseIsNamedWithoutThePassphrase) {
  const std::string none = "cannot be opened without a passphrase: there is no .password file";
  const std::string wrong =
      "cannot be opened with the passphrase in the .password file beside it: wrong passphrase";
  for (const std::string& content :
       {p12({.passphrase = "right"}), p12({.encryption = Encryption::old, .passphrase = "right"}),
        family_.leaf.keyPEM("right"), family_.leaf.oldKeyPEM("right")}) {
    const auto file = write("locked", content);
    EXPECT_THAT(problemWith(file), HasSubstr(none)) << content;
    write("locked.password", "wr0ng-guess\n");
    EXPECT_THAT(problemWith(file), AllOf(HasSubstr(wrong), Not(HasSubstr("wr0ng-guess"))));
    write("locked.password", "right\n");
    EXPECT_TRUE(holdsTheLeafsKey(file)) << content;
    fs::remove(folder_ / "locked.password");
  }
  const std::string aMacs = "login.keychain-db: a Mac's own keychain file";
  EXPECT_THAT(problemWith(write("login.keychain-db", std::string("kych\0\1\0\0", 8))),
              HasSubstr(aMacs));
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(Keychain::open(folder_.path())); }), HasSubstr(aMacs));
}

TEST_F(KeychainTest, ASessionReadsEachFileOnce) {
  const auto path = write("identity.pem", family_.leaf.keyPEM());
  const FileDescriptor events(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  // The kernel merges consecutive equal events, so closing is watched, too: the two alternate.
  ASSERT_GE(::inotify_add_watch(events.get(), path.c_str(), IN_OPEN | IN_CLOSE), 0);
  const auto newOpens = [&events] {
    int count = 0;
    for (inotify_event event{}; ::read(events.get(), &event, sizeof event) == sizeof event;) {
      if (event.mask & IN_OPEN) ++count;
    }
    return count;
  };
  {
    const KeychainSession session;
    const KeychainSession inner;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(holdsTheLeafsKey(path));
    EXPECT_EQ(Keychain::open(folder_.path())->privateKeys().size(), 1u);
    EXPECT_EQ(newOpens(), 1);
  }
  EXPECT_TRUE(holdsTheLeafsKey(path));
  EXPECT_EQ(newOpens(), 1) << "a session that has ended is forgotten";
}

TEST_F(KeychainTest, TheIterationsOfASessionAreBounded) {
  const KeychainSession session(10'000);
  const auto problemOfNext = [&](const std::string& name) {
    return problemWith(write(name, makeSlowKeyFile(SlowPart::keyInPEM, 4096)));
  };
  for (const char* name : {"1.pem", "2.pem"}) {
    EXPECT_THAT(problemOfNext(name), Not(HasSubstr("iterations")));
  }
  EXPECT_THAT(problemOfNext("3.pem"),
              HasSubstr("3.pem: block 1 (ENCRYPTED PRIVATE KEY) asks for 4096 key derivation "
                        "iterations, more than are left for all key files of a run"));
}

TEST_F(KeychainTest, FilesThatAskForTooManyIterationsAreRefused) {
  for (const auto part : {SlowPart::integrityCheck, SlowPart::contents, SlowPart::key,
                          SlowPart::keyByScrypt, SlowPart::keyInPEM}) {
    const auto complaintOf = [&](std::uint64_t iterations) {
      const std::string file = makeSlowKeyFile(part, iterations);
      return problemWith(write("slow", file));
    };
    EXPECT_THAT(complaintOf(10'002'432),
                testing::MatchesRegex(".*/slow: .*asks for 10002432 key derivation iterations; "
                                      "at most 10000000 are allowed for one file"));
    EXPECT_THAT(complaintOf(8192), Not(HasSubstr("iterations")));
  }
}

}  // namespace
}  // namespace foundation

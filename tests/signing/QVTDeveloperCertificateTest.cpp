#include "signing/QVTDeveloperCertificate.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

TEST(QVTDeveloperCertificate, TheKeyInItsKeychainMakesItASigningIdentity) {
  const TemporaryFolder folder;
  // No keychain of the user who runs the tests.
  const ScopedEnvironment home("HOME", folder.path().c_str());
  const auto leaf = makeLeaf(makeRoot(), {.commonName = "Müller", .organizations = {"A", "B"}});
  const auto write = [&](const char* name, const MadeIdentity& owner) {
    const auto path = folder.write(name, owner.keyPEM());
    fs::permissions(path, fs::perms::owner_all);
    return path.string();
  };
  write("Library/Keychains/login.pem", leaf);
  const std::pair<std::optional<std::string>, bool> cases[] = {
      {write("own.pem", leaf), true},
      {std::nullopt, true},  // the default keychains
      {write("other.pem", makeRoot()), false},
      {folder / "missing.keychain", false}};
  for (const auto& [path, hasKey] : cases) {
    SCOPED_TRACE(path.value_or("default keychains"));
    const auto found = QVTDeveloperCertificate::initWithDataKeychainPath(leaf.der(), path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->keychainPath(), path);
    EXPECT_EQ(found->isPrivateKeyAvailable(), hasKey);
    EXPECT_EQ(found->signingIdentity(), hasKey ? std::optional(leaf.sha1()) : std::nullopt);
    EXPECT_EQ(found->commonName(), "Müller");
    EXPECT_EQ(found->subjectSummary(), "Müller");
    EXPECT_EQ(found->organizationName(), "A");
    EXPECT_EQ(found->description(),
              "Müller, private key available " +
                  (hasKey ? "1, signning identity " + leaf.sha1() : "0, signning identity (null)"));
  }
  EXPECT_TRUE(QVTDeveloperCertificate::initWithData(leaf.der())->isPrivateKeyAvailable());
  EXPECT_FALSE(QVTDeveloperCertificate::initWithData(Data(std::string("no certificate"))));
  EXPECT_FALSE(QVTDeveloperCertificate::initWithData(Data()));
}

}  // namespace

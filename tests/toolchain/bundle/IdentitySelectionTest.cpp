#include "tests/support/Identities.h"
#include "tests/support/Test.h"
#include "toolchain/bundle/IdentitySelection.h"

namespace {

/// A keychain folder with what tests put into it, and an empty default list.
class IdentitySelectionTest : public testing::Test {
 protected:
  void put(const std::string& name, const std::string& content) {
    fs::permissions(folder_.write("keys/" + name + ".pem", content), fs::perms(0600));
  }
  MadeIdentity putLeaf(const std::string& commonName, CertificateOptions options = {}) {
    options.commonName = commonName;
    const MadeIdentity made = makeLeaf(intermediate_, options);
    put(made.sha1(), made.keyPEM() + made.certificatePEM());
    return made;
  }
  void putIssuers() { put("issuers", root_.certificatePEM() + intermediate_.certificatePEM()); }
  /// The chosen certificate's common name, or what the error says.
  std::string answer(const std::string& name,
                     const std::vector<foundation::Certificate>& ofProfile = {}) {
    const auto found = toolchain::findIdentity(
        {.name = name, .keychain = folder_ / "keys", .profileCertificates = ofProfile});
    if (!found) return problemOf(found);
    EXPECT_EQ(found->chain.size(), 3U);
    return found->identity.certificate.commonName().value_or("");
  }

  TemporaryFolder folder_;
  ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  MadeIdentity root_ = makeRoot();
  MadeIdentity intermediate_ = makeIntermediate(root_);
};

TEST_F(IdentitySelectionTest, FindsByHashNameOrPartOfAName) {
  const MadeIdentity one = putLeaf("iPhone Developer: One");
  putLeaf("iPhone Developer: One the Second");
  putIssuers();
  EXPECT_EQ(answer(foundation::lowercased(one.sha1())), "iPhone Developer: One");
  EXPECT_EQ(answer("iPhone Developer: One"), "iPhone Developer: One");
  EXPECT_EQ(answer("Second"), "iPhone Developer: One the Second");
  EXPECT_THAT(answer("iPhone"), AllOf(HasSubstr("iPhone: ambiguous in"), HasSubstr(one.sha1())));
  EXPECT_THAT(answer(""), HasSubstr("No identity \"\" in "));
}

/// The app's profile is an attacker's, who knows the public key of "iPhone Distribution: One".
TEST_F(IdentitySelectionTest, ForgedCertificateOfTheProfileIsNotUsed) {
  const MadeIdentity one = putLeaf("iPhone Distribution: One");
  putIssuers();
  const MadeIdentity attacker = makeIntermediate(makeRoot());
  const auto exact = makeLeaf(attacker, {.commonName = "Distribution", .keyHolder = one});
  const std::vector profile = {exact.certificate()};
  EXPECT_EQ(answer("Distribution", profile), "iPhone Distribution: One");

  // Nor with the key alone in the keychain, whoever it names as its issuer.
  put(one.sha1(), one.keyPEM());
  EXPECT_THAT(answer(exact.sha1(), profile), HasSubstr("no certificate of that issuer is at hand"));
  EXPECT_THAT(answer("Distribution", profile), HasSubstr("could not be found"));
  const auto stranger = makeLeaf(attacker, {.commonName = "Self"});
  const auto selfIssued = makeLeaf(stranger, {.commonName = "Self", .keyHolder = one});
  ASSERT_TRUE(selfIssued.certificate().isSelfIssued());
  EXPECT_THAT(answer(selfIssued.sha1(), {selfIssued.certificate()}),
              HasSubstr("is not used: nobody issued it"));
  EXPECT_EQ(answer(one.sha1(), {attacker.certificate(), one.certificate(), one.certificate()}),
            "iPhone Distribution: One");
}

TEST_F(IdentitySelectionTest, OnlyCertificatesOfTodaySign) {
  putIssuers();
  putLeaf("Old", {.validFrom = -48h, .validUntil = -24h});
  putLeaf("Early", {.validFrom = 24h, .validUntil = 48h});
  EXPECT_THAT(answer("Old"), HasSubstr("the certificate \"Old\" expired on 20"));
  EXPECT_THAT(answer("Early"), HasSubstr("the certificate \"Early\" is not valid before 20"));
  putLeaf("Old");
  EXPECT_EQ(answer("Old"), "Old") << "a renewed one of the same name";
}

}  // namespace

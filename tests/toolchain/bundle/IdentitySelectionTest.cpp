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
  void put(const std::string& name, const MadeIdentity& identity) {
    put(name, identity.keyPEM() + identity.certificatePEM());
  }
  void putIssuers() {
    put("root", root_.certificatePEM());
    put("intermediate", intermediate_.certificatePEM());
  }
  MadeIdentity leaf(const std::string& name, CertificateOptions options = {}) {
    options.commonName = name;
    return makeLeaf(intermediate_, options);
  }
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
  const MadeIdentity one = leaf("iPhone Developer: One (AAA)");
  put("one", one);
  put("two", leaf("iPhone Developer: Two (BBB)"));
  put("longer", leaf("iPhone Developer: One (AAA) the Second"));
  putIssuers();
  for (const std::string& name : {one.sha1(), foundation::lowercased(one.sha1()),
                                  std::string("iPhone Developer: One (AAA)")}) {
    EXPECT_EQ(answer(name), "iPhone Developer: One (AAA)") << name;
  }
  EXPECT_EQ(answer("Two"), "iPhone Developer: Two (BBB)");
  EXPECT_THAT(answer("iPhone"), AllOf(HasSubstr("iPhone: ambiguous in"), HasSubstr(one.sha1())));
  for (const std::string& name : {std::string("Three"), std::string(""), std::string(40, '0')}) {
    EXPECT_THAT(answer(name),
                StartsWith("error: The specified item could not be found in the keychain. No "
                           "identity \"" +
                           name + "\" in "));
  }
}

TEST_F(IdentitySelectionTest, CertificateMayComeFromTheProfileAndIssuersFromTheDefaultList) {
  const MadeIdentity one = leaf("One");
  put("one", one.keyPEM());
  folder_.write("Library/Keychains/root.der", root_.der().text());
  folder_.write("Library/Keychains/issuer.crt", intermediate_.der().text());
  EXPECT_THAT(answer("One"), HasSubstr("could not be found"));
  const auto other = leaf("Other").certificate();
  EXPECT_EQ(answer(one.sha1(), {other, one.certificate(), one.certificate()}), "One");
}

/// The app's profile is an attacker's, who knows the public key of "iPhone Distribution: One".
TEST_F(IdentitySelectionTest, ForgedCertificateOfTheProfileIsNotUsed) {
  const MadeIdentity one = leaf("iPhone Distribution: One");
  put("one", one);
  putIssuers();
  const MadeIdentity attacker = makeIntermediate(makeRoot());
  const MadeIdentity exact = makeForged(one, attacker, "Distribution");
  const std::vector profile = {exact.certificate()};
  EXPECT_EQ(answer("Distribution", profile), "iPhone Distribution: One");
  EXPECT_THAT(answer(exact.sha1(), profile),
              AllOf(HasSubstr("the profile's certificate \"Distribution\""),
                    HasSubstr("the keychain has \"iPhone Distribution: One\" (" + one.sha1() +
                              ") for the same key")));

  // Nor with the key alone in the keychain, whoever it names as its issuer.
  put("one", one.keyPEM());
  EXPECT_THAT(answer(exact.sha1(), profile), HasSubstr("no certificate of that issuer is at hand"));
  EXPECT_THAT(answer("Distribution", profile), HasSubstr("could not be found"));
  const auto selfIssued = makeForged(one, makeLeaf(attacker, {.commonName = "Self"}), "Self");
  ASSERT_TRUE(selfIssued.certificate().isSelfIssued());
  EXPECT_THAT(answer(selfIssued.sha1(), {selfIssued.certificate()}),
              HasSubstr("is not used: nobody issued it"));
  EXPECT_EQ(answer(one.sha1(), {one.certificate()}), "iPhone Distribution: One");
}

TEST_F(IdentitySelectionTest, WhatIsMissingIsNamed) {
  put("one", leaf("One"));
  EXPECT_THAT(answer("One"), HasSubstr("Test Developer Relations CA"));
  put("intermediate", intermediate_.certificatePEM());
  EXPECT_THAT(answer("One"), HasSubstr("Test Root CA"));
  putIssuers();
  EXPECT_EQ(answer("One"), "One");
}

TEST_F(IdentitySelectionTest, OnlyCertificatesOfTodaySign) {
  putIssuers();
  put("old", leaf("Old", {.validFrom = -48h, .validUntil = -24h}));
  put("early", leaf("Early", {.validFrom = 24h, .validUntil = 48h}));
  EXPECT_THAT(answer("Old"), HasSubstr("the certificate \"Old\" expired on 20"));
  EXPECT_THAT(answer("Early"), HasSubstr("the certificate \"Early\" is not valid before 20"));
  // A renewed certificate of the same name takes the place of the old one.
  put("renewed", leaf("Old"));
  EXPECT_EQ(answer("Old"), "Old");
}

}  // namespace

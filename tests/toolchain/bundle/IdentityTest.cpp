#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Text.h"
#include "tests/support/Identities.h"
#include "tests/support/TemporaryFolder.h"
#include "toolchain/bundle/IdentitySelection.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::HasSubstr;

/// A keychain folder with what tests put into it, and an empty default list.
class IdentityTest : public testing::Test {
 protected:
  void put(const std::string& name, const MadeIdentity& identity) {
    fs::permissions(
        folder_.write("keys/" + name + ".pem", identity.keyPEM() + identity.certificatePEM()),
        fs::perms(0600));
  }
  void putCertificate(const std::string& name, const MadeIdentity& identity) {
    folder_.write("keys/" + name + ".cer", identity.der().text());
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
    if (!found) return found.error().localizedDescription();
    EXPECT_EQ(found->chain.size(), 3U);
    return found->identity.certificate.commonName().value_or("");
  }

  TemporaryFolder folder_;
  ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  MadeIdentity root_ = makeRoot();
  MadeIdentity intermediate_ = makeIntermediate(root_);
};

TEST_F(IdentityTest, IsFoundByHashNameOrPartOfAName) {
  const MadeIdentity one = leaf("iPhone Developer: One (AAA)");
  put("one", one);
  put("two", leaf("iPhone Developer: Two (BBB)"));
  put("longer", leaf("iPhone Developer: One (AAA) the Second"));
  putCertificate("root", root_);
  putCertificate("intermediate", intermediate_);
  for (const std::string& name : {one.sha1(), foundation::lowercased(one.sha1()),
                                  std::string("iPhone Developer: One (AAA)")}) {
    EXPECT_EQ(answer(name), "iPhone Developer: One (AAA)") << name;
  }
  EXPECT_EQ(answer("Two"), "iPhone Developer: Two (BBB)");
  EXPECT_THAT(answer("iPhone"), HasSubstr("iPhone: ambiguous in"));
  EXPECT_THAT(answer("iPhone"), HasSubstr(one.sha1()));
  for (const std::string& name : {std::string("Three"), std::string(""), std::string(40, '0')}) {
    EXPECT_THAT(answer(name), testing::StartsWith(
                                  "error: The specified item could not be found in the keychain."))
        << name;
  }
}

TEST_F(IdentityTest, CertificateMayComeFromTheProfileAndIssuersFromTheDefaultList) {
  const MadeIdentity one = leaf("One");
  fs::permissions(folder_.write("keys/one.pem", one.keyPEM()), fs::perms(0600));
  folder_.write("Library/Keychains/root.der", root_.der().text());
  folder_.write("Library/Keychains/issuer.crt", intermediate_.der().text());
  EXPECT_THAT(answer("One"), HasSubstr("could not be found"));
  EXPECT_EQ(answer(one.sha1(), {leaf("Other").certificate(), one.certificate()}), "One");
}

/// The app's profile is an attacker's, who knows the public key of "iPhone Distribution: One".
TEST_F(IdentityTest, ForgedCertificateOfTheProfileIsNotUsed) {
  const MadeIdentity one = leaf("iPhone Distribution: One");
  put("one", one);
  putCertificate("intermediate", intermediate_);
  putCertificate("root", root_);
  const MadeIdentity attacker = makeIntermediate(makeRoot());
  const MadeIdentity exact = makeForged(one, attacker, "Distribution");
  const std::vector profile = {exact.certificate()};
  EXPECT_EQ(answer("Distribution", profile), "iPhone Distribution: One");
  EXPECT_THAT(answer(exact.sha1(), profile),
              AllOf(HasSubstr("the profile's certificate \"Distribution\""),
                    HasSubstr("the keychain has \"iPhone Distribution: One\" (" + one.sha1() +
                              ") for the same key")));

  // Nor with the key alone in the keychain, whoever it names as its issuer.
  folder_.write("keys/one.pem", one.keyPEM());
  EXPECT_THAT(answer(exact.sha1(), profile), HasSubstr("no certificate of that issuer is at hand"));
  EXPECT_THAT(answer("Distribution", profile), HasSubstr("could not be found"));
  const auto selfIssued = makeForged(one, makeLeaf(attacker, {.commonName = "Self"}), "Self");
  ASSERT_TRUE(selfIssued.certificate().isSelfIssued());
  EXPECT_THAT(answer(selfIssued.sha1(), {selfIssued.certificate()}),
              HasSubstr("is not used: nobody issued it"));
  EXPECT_EQ(answer(one.sha1(), {one.certificate()}), "iPhone Distribution: One");
}

TEST_F(IdentityTest, WhatIsMissingIsNamed) {
  put("one", leaf("One"));
  EXPECT_THAT(answer("One"), HasSubstr("Test Developer Relations CA"));
  putCertificate("intermediate", intermediate_);
  EXPECT_THAT(answer("One"), HasSubstr("Test Root CA"));
  putCertificate("root", root_);
  EXPECT_EQ(answer("One"), "One");
}

TEST_F(IdentityTest, OnlyCertificatesOfTodaySign) {
  using std::chrono::hours;
  putCertificate("intermediate", intermediate_);
  putCertificate("root", root_);
  put("old", leaf("Old", {.validFrom = -hours(48), .validUntil = -hours(24)}));
  put("early", leaf("Early", {.validFrom = hours(24), .validUntil = hours(48)}));
  EXPECT_THAT(answer("Old"), HasSubstr("the certificate \"Old\" expired on 20"));
  EXPECT_THAT(answer("Early"), HasSubstr("the certificate \"Early\" is not valid before 20"));
  // A renewed certificate of the same name takes the place of the old one.
  put("renewed", leaf("Old"));
  EXPECT_EQ(answer("Old"), "Old");
}

TEST_F(IdentityTest, WrongPassphraseIsToldWithoutIt) {
  const MadeIdentity one = leaf("One");
  const fs::path file = folder_.write(
      "one.p12", makePKCS12(one, {intermediate_, root_}, {.passphrase = "right"}).text());
  fs::permissions(file, fs::perms(0600));
  const auto find = [&] { return toolchain::findIdentity({.name = "One", .keychain = file}); };
  fs::permissions(folder_.write("one.p12.password", "wrong-secret\n"), fs::perms(0600));
  const auto refused = find();
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.error().localizedDescription(), HasSubstr("one.p12"));
  EXPECT_THAT(refused.error().localizedDescription(), testing::Not(HasSubstr("wrong-secret")));
  fs::permissions(folder_.write("one.p12.password", "right\n"), fs::perms(0600));
  EXPECT_TRUE(find());
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/crypto/CertificateChain.h"
#include "tests/support/Identities.h"

namespace foundation {
namespace {

using test::CertificateOptions;
using testing::ElementsAre;
using testing::HasSubstr;

Certificate leafWith(const CertificateOptions& options) {
  return test::makeLeaf(test::makeRoot(), options).certificate();
}

TEST(CertificateTest, NamesAreReadInTheCertificatesOrder) {
  const auto certificate = leafWith({.commonName = "Jörg Müller (XYZ)",
                                     .organizations = {"First GmbH", "Second Ltd"},
                                     .organizationalUnit = "XYZ"});
  EXPECT_EQ(certificate.commonName(), "Jörg Müller (XYZ)");
  EXPECT_EQ(certificate.subjectValue(kOIDOrganizationName), "First GmbH");
  EXPECT_EQ(certificate.subjectValue("2.5.4.6"), std::nullopt);
  std::vector<std::string> labels;
  for (const auto& part : certificate.subject()) labels.push_back(part.label);
  EXPECT_THAT(labels, ElementsAre("2.5.4.3", "2.5.4.11", "2.5.4.10", "2.5.4.10"));
}

TEST(CertificateTest, SummaryIsTheFirstNameThatThereIs) {
  CertificateOptions options = {.commonName = "Name",
                                .organizations = {"O"},
                                .organizationalUnit = "OU",
                                .emailAddress = "a@b.example"};
  EXPECT_EQ(leafWith(options).subjectSummary(), "Name");
  options.commonName = "";
  EXPECT_EQ(leafWith(options).subjectSummary(), "OU");
  options.organizationalUnit = "";
  EXPECT_EQ(leafWith(options).subjectSummary(), "O");
  options.organizations = {};
  EXPECT_EQ(leafWith(options).subjectSummary(), "a@b.example");
  options.emailAddress = "";
  EXPECT_EQ(leafWith(options).subjectSummary(), std::nullopt);
}

TEST(CertificateTest, OnlyOneWholeCertificateIsTakenFromDER) {
  const Data der = test::makeRoot().der();
  const std::string text(der.text());
  const auto whole = Certificate::fromDER(der.bytes());
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->der(), der);
  EXPECT_EQ(whole->sha1(), sha1(der.bytes()));
  for (const std::string& bytes :
       {std::string(), text.substr(0, text.size() - 1), text + "x",
        std::string("-----BEGIN CERTIFICATE-----"), std::string("\x30\x84\x7f\xff\xff\xff")}) {
    EXPECT_FALSE(Certificate::fromDER(bytesOf(bytes))) << bytes.size() << " bytes";
  }
}

TEST(CertificateTest, ValidityIncludesBothEnds) {
  const auto certificate =
      leafWith({.validFrom = std::chrono::hours(-48), .validUntil = std::chrono::hours(-24)});
  EXPECT_EQ(certificate.notAfter() - certificate.notBefore(), std::chrono::hours(24));
  EXPECT_TRUE(certificate.isValidAt(certificate.notBefore()));
  EXPECT_TRUE(certificate.isValidAt(certificate.notAfter()));
  EXPECT_FALSE(certificate.isValidAt(certificate.notBefore() - std::chrono::seconds(1)));
  EXPECT_FALSE(certificate.isValidAt(certificate.notAfter() + std::chrono::seconds(1)));
}

TEST(CertificateTest, IssuersAreToldByKeyNotOnlyByName) {
  const auto root = test::makeRoot("Same Name").certificate();
  const auto issuer = test::makeRoot("Same Name");
  const auto leaf = test::makeLeaf(issuer).certificate();
  EXPECT_TRUE(leaf.isIssuedBy(issuer.certificate()));
  EXPECT_FALSE(leaf.isIssuedBy(root));
  EXPECT_TRUE(root.isSelfIssued());
  EXPECT_FALSE(leaf.isSelfIssued());
  EXPECT_THAT(leaf.issuerText(), HasSubstr("Same Name"));
}

/// The names from leaf to root, or what is said to be missing.
std::vector<std::string> chainFrom(const test::MadeIdentity& leaf,
                                   const std::vector<test::MadeIdentity>& candidates) {
  std::vector<Certificate> certificates;
  for (const auto& candidate : candidates) certificates.push_back(candidate.certificate());
  const auto chain = certificateChain(leaf.certificate(), certificates);
  if (!chain) return {chain.error().localizedDescription()};
  std::vector<std::string> names;
  for (const auto& certificate : *chain) names.push_back(certificate.commonName().value_or("?"));
  return names;
}

TEST(CertificateChainTest, LeadsToTheRootWhateverTheCandidatesAre) {
  for (const auto kind : {test::KeyKind::rsa, test::KeyKind::p256}) {
    const auto root = test::makeRoot("Root", kind);
    const auto stranger = test::makeRoot("Root");
    const auto intermediate = test::makeIntermediate(root, "Intermediate", kind);
    const auto lost = test::makeCrossSigned(intermediate, test::makeRoot("Lost Root"));
    const auto leaf = test::makeLeaf(intermediate, {.commonName = "Leaf", .key = kind});
    EXPECT_THAT(chainFrom(leaf, {stranger, root, leaf, lost, intermediate}),
                ElementsAre("Leaf", "Intermediate", "Root"));
    EXPECT_THAT(chainFrom(leaf, {stranger, intermediate}), ElementsAre(HasSubstr("Root")));
    EXPECT_THAT(chainFrom(leaf, {root}), ElementsAre(HasSubstr("Intermediate")));
  }
}

TEST(CertificateChainTest, IssuersMustBeAuthorities) {
  const auto root = test::makeRoot("Root");
  const struct {
    const char* constraints;
    const char* usage;
    bool overLeaf = false;
    bool overIssuer = false;
  } rows[] = {{"CA:TRUE", "keyCertSign", true, true},
              {"CA:TRUE", "", true, true},
              {"CA:TRUE,pathlen:1", "keyCertSign", true, true},
              {"CA:TRUE,pathlen:0", "keyCertSign", true, false},
              {"CA:TRUE", "digitalSignature"},
              {"CA:FALSE", ""},
              {"", ""},
              {"", "keyCertSign"}};
  for (const auto& [constraints, usage, overLeaf, overIssuer] : rows) {
    SCOPED_TRACE(std::string(constraints) + " " + usage);
    const auto issuer = test::makeIssuer(root, constraints, usage);
    const auto other = test::makeIntermediate(issuer, "Other");
    EXPECT_EQ(chainFrom(test::makeLeaf(issuer), {issuer, root}).size() == 3, overLeaf);
    EXPECT_EQ(chainFrom(test::makeLeaf(other), {other, issuer, root}).size() == 4, overIssuer);
  }
  const auto unfit = test::makeIssuer(root, "CA:FALSE", "");
  EXPECT_THAT(chainFrom(test::makeLeaf(unfit), {unfit, root}),
              ElementsAre(HasSubstr("\", whose certificate may not issue it")));
}

}  // namespace
}  // namespace foundation

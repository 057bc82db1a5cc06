#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/Certificate.h"
#include "tests/support/Identities.h"

namespace foundation {
namespace {

using test::CertificateOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

Certificate leafWith(const CertificateOptions& options) {
  return test::makeLeaf(test::makeRoot(), options).certificate();
}

std::vector<std::string> namesOf(const std::vector<Certificate>& chain) {
  std::vector<std::string> names;
  for (const auto& certificate : chain) names.push_back(certificate.commonName().value_or("?"));
  return names;
}

TEST(CertificateTest, NamesAreReadInTheCertificatesOrder) {
  const auto certificate = leafWith({.commonName = "Jörg Müller (XYZ)",
                                     .organizations = {"First GmbH", "Second Ltd"},
                                     .organizationalUnit = "XYZ"});
  EXPECT_THAT(certificate.commonName(), Optional(std::string("Jörg Müller (XYZ)")));
  EXPECT_THAT(certificate.subjectValue(kOIDOrganizationName), Optional(std::string("First GmbH")));
  EXPECT_THAT(certificate.subjectValue(kOIDOrganizationalUnitName), Optional(std::string("XYZ")));
  EXPECT_EQ(certificate.subjectValue("2.5.4.6"), std::nullopt);
  std::vector<std::string> labels;
  for (const auto& part : certificate.subject()) labels.push_back(part.label);
  EXPECT_THAT(labels, ElementsAre("2.5.4.3", "2.5.4.11", "2.5.4.10", "2.5.4.10"));
}

TEST(CertificateTest, SummaryIsTheFirstNameThatThereIs) {
  struct Case {
    CertificateOptions options;
    std::optional<std::string> summary;
  };
  const std::vector<Case> cases{
      {{.commonName = "Name", .organizations = {"O"}, .organizationalUnit = "OU"}, "Name"},
      {{.commonName = "", .organizations = {"O"}, .organizationalUnit = "OU"}, "OU"},
      {{.commonName = "",
        .organizations = {"O"},
        .organizationalUnit = "",
        .emailAddress = "a@b.example"},
       "O"},
      {{.commonName = "",
        .organizations = {},
        .organizationalUnit = "",
        .emailAddress = "a@b.example"},
       "a@b.example"},
      {{.commonName = "", .organizations = {}, .organizationalUnit = ""}, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.summary.value_or("none"));
    EXPECT_EQ(leafWith(c.options).subjectSummary(), c.summary);
  }
}

TEST(CertificateTest, OnlyOneWholeCertificateIsTakenFromDER) {
  const Data der = test::makeRoot().der();
  const std::string text(der.text());
  const auto whole = Certificate::fromDER(der.bytes());
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->der(), der);
  EXPECT_EQ(whole->sha1(), sha1(der.bytes()));
  for (const auto& [name, bytes] : std::vector<std::pair<std::string, std::string>>{
           {"empty", ""},
           {"cut off", text.substr(0, text.size() - 1)},
           {"header only", text.substr(0, 4)},
           {"byte behind", text + "x"},
           {"no DER", "-----BEGIN CERTIFICATE-----"},
           {"length of 2 GiB", "\x30\x84\x7f\xff\xff\xff"},
       }) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(Certificate::fromDER(bytesOf(bytes)));
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
  const auto root = test::makeRoot("Same Name");
  const auto impostor = test::makeRoot("Same Name");
  const auto leaf = test::makeLeaf(root).certificate();
  EXPECT_TRUE(leaf.isIssuedBy(root.certificate()));
  EXPECT_FALSE(leaf.isIssuedBy(impostor.certificate()));
  EXPECT_FALSE(root.certificate().isIssuedBy(leaf));
  EXPECT_TRUE(root.certificate().isSelfIssued());
  EXPECT_FALSE(leaf.isSelfIssued());
  EXPECT_THAT(leaf.issuerText(), HasSubstr("Same Name"));
}

TEST(CertificateChainTest, ChainLeadsFromLeafToRootWhateverTheOrderOfCandidates) {
  for (const auto kind : {test::KeyKind::rsa, test::KeyKind::p256}) {
    const auto root = test::makeRoot("Root", kind);
    const auto intermediate = test::makeIntermediate(root, "Intermediate", kind);
    const auto leaf = test::makeLeaf(intermediate, {.commonName = "Leaf", .key = kind});
    const auto stranger = test::makeRoot("Root");
    const auto chain =
        certificateChain(leaf.certificate(), {stranger.certificate(), root.certificate(),
                                              leaf.certificate(), intermediate.certificate()});
    ASSERT_TRUE(chain);
    EXPECT_THAT(namesOf(*chain), ElementsAre("Leaf", "Intermediate", "Root"));
    EXPECT_EQ(chain->back().der(), root.certificate().der());
  }
}

TEST(CertificateChainTest, MissingIssuerIsNamed) {
  const auto family = test::makeFamily();
  const auto withoutRoot =
      certificateChain(family.leaf.certificate(), {family.intermediate.certificate()});
  ASSERT_FALSE(withoutRoot);
  EXPECT_THAT(withoutRoot.error().localizedDescription(), HasSubstr("Test Root CA"));
  const auto withoutAll = certificateChain(family.leaf.certificate(), {family.root.certificate()});
  ASSERT_FALSE(withoutAll);
  EXPECT_THAT(withoutAll.error().localizedDescription(), HasSubstr("Test Developer Relations CA"));
}

TEST(CertificateChainTest, WayAroundACandidateWithoutIssuerIsFound) {
  const auto lost = test::makeRoot("Lost Root");
  const auto root = test::makeRoot("Known Root");
  const auto known = test::makeIntermediate(root, "Intermediate");
  const auto leaf = test::makeLeaf(known, {.commonName = "Leaf"});
  const auto crossSigned = test::makeCrossSigned(known, lost);
  const auto chain = certificateChain(
      leaf.certificate(), {crossSigned.certificate(), known.certificate(), root.certificate()});
  ASSERT_TRUE(chain);
  EXPECT_THAT(namesOf(*chain), ElementsAre("Leaf", "Intermediate", "Known Root"));
}

}  // namespace
}  // namespace foundation

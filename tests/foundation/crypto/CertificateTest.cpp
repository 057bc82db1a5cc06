#include "foundation/crypto/CertificateChain.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

Certificate leafWith(const CertificateOptions& options) {
  return makeLeaf(makeRoot(), options).certificate();
}

TEST(Certificate, OnlyOneWholeCertificateIsTakenFromDER) {
  const Data der = makeRoot().der();
  const std::string text(der.text());
  EXPECT_TRUE(Certificate::fromDER(der.bytes()));
  for (const std::string& bytes :
       {std::string(), text.substr(0, text.size() - 1), text + "x",
        std::string("-----BEGIN CERTIFICATE-----"), std::string("\x30\x84\x7f\xff\xff\xff")}) {
    EXPECT_FALSE(Certificate::fromDER(bytesOf(bytes))) << bytes.size() << " bytes";
  }
}

TEST(Certificate, ValidityIncludesBothEnds) {
  const auto certificate = leafWith({.validFrom = -48h, .validUntil = -24h});
  const Date first = certificate.notBefore(), last = certificate.notAfter();
  EXPECT_EQ(last - first, 24h);
  EXPECT_TRUE(certificate.isValidAt(first) && certificate.isValidAt(last));
  EXPECT_FALSE(certificate.isValidAt(first - 1s));
  EXPECT_FALSE(certificate.isValidAt(last + 1s));
}

/// The names from leaf to root, or what is said to be missing.
std::vector<std::string> chainFrom(const MadeIdentity& leaf,
                                   const std::vector<MadeIdentity>& candidates) {
  std::vector<Certificate> certificates;
  for (const auto& candidate : candidates) certificates.push_back(candidate.certificate());
  const auto chain = certificateChain(leaf.certificate(), certificates);
  if (!chain) return {problemOf(chain)};
  std::vector<std::string> names;
  for (const auto& certificate : *chain) names.push_back(certificate.commonName().value_or("?"));
  return names;
}

TEST(CertificateChain, LeadsToTheRootWhateverTheCandidatesAre) {
  const auto root = makeRoot("Root");
  const auto stranger = makeRoot("Root");
  const auto intermediate = makeIntermediate(root, "Intermediate");
  const auto crossSigned =
      makeIntermediate(makeRoot("Lost Root"), "Intermediate", {.keyHolder = intermediate});
  const auto leaf = makeLeaf(intermediate, {.commonName = "Leaf"});
  EXPECT_THAT(chainFrom(leaf, {stranger, root, leaf, crossSigned, intermediate}),
              ElementsAre("Leaf", "Intermediate", "Root"));
  EXPECT_THAT(chainFrom(leaf, {stranger, intermediate}), ElementsAre(HasSubstr("Root")));
  EXPECT_THAT(chainFrom(leaf, {root}), ElementsAre(HasSubstr("Intermediate")));
}

TEST(CertificateChain, IssuersMustBeAuthorities) {
  const auto root = makeRoot("Root");
  const struct {
    std::string extensions;
    bool overLeaf = false, overIssuer = false;
  } rows[] = {{"basicConstraints=CA:TRUE\nkeyUsage=keyCertSign\n", true, true},
              {"basicConstraints=CA:TRUE\n", true, true},
              {"basicConstraints=CA:TRUE,pathlen:1\nkeyUsage=keyCertSign\n", true, true},
              {"basicConstraints=CA:TRUE,pathlen:0\nkeyUsage=keyCertSign\n", true, false},
              {"basicConstraints=CA:TRUE\nkeyUsage=digitalSignature\n"},
              {"keyUsage=keyCertSign\n"},
              {"basicConstraints=CA:FALSE\n"},
              {""}};
  for (const auto& [extensions, overLeaf, overIssuer] : rows) {
    SCOPED_TRACE(extensions);
    const auto issuer = makeLeaf(root, {.commonName = "Issuer", .extensions = extensions});
    const auto other = makeIntermediate(issuer, "Other");
    const auto chain = chainFrom(makeLeaf(issuer), {issuer, root});
    EXPECT_EQ(chain.size() == 3, overLeaf);
    EXPECT_EQ(chainFrom(makeLeaf(other), {other, issuer, root}).size() == 4, overIssuer);
    if (extensions.empty()) {
      EXPECT_THAT(chain, ElementsAre(HasSubstr("\", whose certificate may not issue it")));
    }
  }
}

}  // namespace
}  // namespace foundation

#include <openssl/evp.h>

#include "foundation/crypto/CMS.h"
#include "foundation/crypto/DER.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

using foundation::Certificate;
namespace CMS = foundation::CMS;
namespace DER = foundation::DER;

constexpr std::string_view kContent = "what is signed";
constexpr const char* kListOID = "1.2.840.113635.100.9.2";
const Date kSigningTime = std::chrono::sys_days{std::chrono::year{2026} / 3 / 9};

std::vector<Certificate> chainOf(const Family& family) {
  return {family.leaf.certificate(), family.intermediate.certificate(), family.root.certificate()};
}

/// An attribute with several values, handed over in the wrong order.
CMS::Attribute listAttribute() {
  return {kListOID,
          {Data(DER::element(DER::kOctetString, "longer value")),
           Data(DER::element(DER::kOctetString, "short"))}};
}

std::string messageBy(const Family& family, const std::vector<Certificate>& certificates) {
  const auto message = CMS::signDetached(bytesOf(kContent), family.leaf.identity(), certificates,
                                         kSigningTime, {listAttribute()});
  EXPECT_EQ(problemOf(message), "");
  return std::string(message->text());
}
std::string messageBy(const Family& family) { return messageBy(family, chainOf(family)); }

std::string problemWith(const std::string& message, std::string_view content = kContent) {
  const Bytes input = keepForFuzzing("SignedMessage", bytesOf(message));
  return problemOf(CMS::verifyDetached(input, bytesOf(content)));
}

class EveryKey : public testing::TestWithParam<KeyKind> {
 protected:
  Family family_ = makeFamily({.key = GetParam()});
};
INSTANTIATE_TEST_SUITE_P(CMS, EveryKey, testing::Values(KeyKind::rsa, KeyKind::p256));

TEST_P(EveryKey, SignedMessagesVerify) {
  const std::string message = messageBy(family_);
  const auto signer = CMS::verifyDetached(bytesOf(message), bytesOf(kContent));
  ASSERT_EQ(problemOf(signer), "");
  EXPECT_EQ(signer->certificate.der(), family_.leaf.der());
  ASSERT_EQ(signer->chain.size(), 3U);
  EXPECT_EQ(signer->chain.back().der(), family_.root.der());
  EXPECT_EQ(signer->signingTime, kSigningTime);
  const auto list = std::ranges::find(signer->signedAttributes, kListOID, &CMS::Attribute::oid);
  ASSERT_NE(list, signer->signedAttributes.end());
  EXPECT_THAT(list->values, ElementsAre(listAttribute().values[1], listAttribute().values[0]));
  EXPECT_EQ(message, messageBy(family_)) << "the same input gives the same bytes";
  EXPECT_THAT(problemWith(message, "other content"), HasSubstr("messageDigest"));
}

TEST_P(EveryKey, MessagesOfAnotherWriterVerify) {
  const TemporaryFolder folder;
  folder.write("content", kContent);
  folder.write("leaf.pem", family_.leaf.certificatePEM());
  folder.write("key.pem", family_.leaf.keyPEM());
  folder.write("others.pem", family_.intermediate.certificatePEM() + family_.root.certificatePEM());
  for (const std::string option : {"", "-keyid", "-md sha384", "-noattr"}) {
    outputOf({"sh", "-c",
              "cd " + folder.path().string() +
                  " && openssl cms -sign -binary -outform DER -in content -signer leaf.pem "
                  "-inkey key.pem -certfile others.pem -out message " +
                  option});
    EXPECT_EQ(problemWith(contentsOf(folder / "message")), "") << option;
  }
}

TEST(CMSWriting, AMalformedIdentifierIsRefused) {
  const auto family = makeFamily();
  EXPECT_NE(problemOf(CMS::signDetached({}, family.leaf.identity(), {}, Date(), {{"1.x", {}}})),
            "");
}

using Fields = std::vector<std::string>;

/// The elements one after another, each with its header.
Fields elementsIn(Bytes bytes) {
  Fields elements;
  for (DER::Reader reader(bytes); const auto element = reader.next();) {
    elements.emplace_back(textOf(element->whole));
  }
  return elements;
}
Fields elementsIn(std::string_view whole) {
  return elementsIn(DER::Reader(bytesOf(whole)).next()->content);
}
std::string sequence(const Fields& fields, std::uint8_t tag = DER::kSequence) {
  return DER::element(tag, foundation::joined(fields, ""));
}

/// The message with the fields of its SignedData changed.
std::string withFields(std::string_view message, const std::function<void(Fields&)>& change) {
  Fields info = elementsIn(message);
  Fields fields = elementsIn(elementsIn(info[1])[0]);
  change(fields);
  info[1] = DER::element(DER::kContext0, sequence(fields));
  return sequence(info);
}
/// The same with the fields of its one signer: version, issuer and serial number, digest, signed
/// attributes, algorithm, signature.
std::string withSigner(std::string_view message, const std::function<void(Fields&)>& change) {
  return withFields(message, [&](Fields& all) {
    Fields signer = elementsIn(elementsIn(all[4])[0]);
    change(signer);
    all[4] = DER::element(DER::kSet, sequence(signer));
  });
}

/// The same elements with indefinite lengths down to this depth.
std::string indefinite(std::string_view elements, int depth) {
  std::string out;
  DER::Reader reader(bytesOf(elements));
  while (const auto element = reader.next()) {
    if (depth == 0 || !(element->tag & 0x20)) {
      out += textOf(element->whole);
    } else {
      out += static_cast<char>(element->tag) + std::string("\x80") +
             indefinite(textOf(element->content), depth - 1) + std::string(2, '\0');
    }
  }
  return out;
}

std::string signedByRSA(const MadeIdentity& signer, std::string_view text) {
  const foundation::Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, signer.nativeKey());
  std::string signature(512, '\0');
  std::size_t size = signature.size();
  EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                 reinterpret_cast<const unsigned char*>(text.data()), text.size());
  return signature.substr(0, size);
}

/// A release of the platform's own tool signed attribute values that were not in DER order.
TEST(CMSReading, ValuesOutOfOrderVerifyAsTheyWereSigned) {
  const auto family = makeFamily({.key = KeyKind::rsa});
  std::string message = messageBy(family);
  const std::string longer(listAttribute().values[0].text());
  const std::string shorter(listAttribute().values[1].text());
  message.replace(message.find(shorter + longer), shorter.size() + longer.size(), longer + shorter);
  EXPECT_NE(problemWith(message), "");
  EXPECT_EQ(problemWith(withSigner(message,
                                   [&](Fields& signer) {
                                     std::string attributes = signer[3];
                                     attributes[0] = static_cast<char>(DER::kSet);
                                     signer.back() = DER::element(
                                         DER::kOctetString, signedByRSA(family.leaf, attributes));
                                   })),
            "");
}

TEST(CMSReading, IndefiniteLengthsPiecesAndTrailingZerosAreAccepted) {
  const std::string message = messageBy(makeFamily());
  EXPECT_EQ(problemWith(indefinite(message, 5) + std::string(9, '\0')), "");
  const auto inPieces = [](Fields& signer) {
    const std::string signature = signer.back().substr(2);
    signer.back() = "\x24\x80" + DER::element(DER::kOctetString, signature.substr(0, 5)) +
                    DER::element(DER::kOctetString, signature.substr(5)) + std::string(2, '\0');
  };
  EXPECT_EQ(problemWith(withSigner(message, inPieces)), "");
}

TEST(CMSReading, FaultsAreNamed) {
  const auto family = makeFamily();
  const auto chain = chainOf(family);
  const std::string good = messageBy(family);
  std::string badSignature = good;
  badSignature.back() = static_cast<char>(badSignature.back() ^ 1);
  const std::string bare(makeBareSignature(kContent, family).text());
  const auto withOther = [](std::string text, const char* type, const char* otherType) {
    const std::string oid = DER::objectIdentifier(type);
    return text.replace(text.find(oid), oid.size(), DER::objectIdentifier(otherType));
  };
  const struct {
    const char* name;
    std::string message;
    const char* complaint;
  } cases[] = {
      {"truncated", good.substr(0, good.size() - 1), "malformed encoding"},
      {"nested without end", repeated("\x30\x80", 100), "malformed encoding"},
      {"something behind it", good + "x", "malformed encoding at byte"},
      {"tag of two bytes", "\x3f\x10" + good.substr(1), "malformed encoding of a tag"},
      {"certificates in a primitive element",
       withFields(good, [](Fields& fields) { fields[3][0] = static_cast<char>(0x80); }),
       "malformed encoding of a tag"},
      {"issuer in a primitive sequence",
       withSigner(good, [](Fields& signer) { signer[1][2] = 0x10; }),
       "malformed encoding of a tag"},
      {"digests in a primitive set", withFields(good, [](Fields& fields) { fields[1][0] = 0x11; }),
       "malformed encoding of a tag"},
      {"too large", good + std::string(1 << 20, '\0'), "bytes are too many"},
      {"too many certificates",
       messageBy(family, std::vector<Certificate>(65, family.leaf.certificate())),
       "certificates: more than 64"},
      {"attribute twice",
       withSigner(good,
                  [](Fields& signer) {
                    Fields attributes = elementsIn(signer[3]);
                    attributes.push_back(attributes[0]);
                    signer[3] = sequence(attributes, DER::kContext0);
                  }),
       "is repeated"},
      {"other type of message", withOther(good, "1.2.840.113549.1.7.2", "1.2.840.113549.1.7.9"),
       "no signed data"},
      {"other content type", withOther(good, "1.2.840.113549.1.7.1", "1.2.840.113549.1.7.5"),
       "contentType attribute"},
      {"content inside", std::string(makeSignedMessage(kContent, family.leaf).text()),
       "holds content of its own"},
      {"one bit of the signature", badSignature, "not the signer's"},
      {"no certificates", messageBy(family, {}), "among the 0"},
      {"of other content, without attributes",
       std::string(makeBareSignature("other content", family).text()),
       "not the signer's over the content"},
      {"of another type, without attributes",
       withOther(bare, "1.2.840.113549.1.7.1", "1.2.840.113549.1.7.5"), "no signed attributes"},
      {"certificate truncated",
       withFields(good, [](Fields& fields) { fields[3] = DER::element(DER::kContext0, "\x30"); }),
       "malformed encoding"},
      {"two signers",
       withFields(good,
                  [](Fields& fields) {
                    const std::string one = elementsIn(fields[4])[0];
                    fields[4] = sequence({one, one}, DER::kSet);
                  }),
       "not exactly one signer"},
      {"empty signer", withSigner(good, [](Fields& signer) { signer.clear(); }),
       "malformed encoding"},
      {"unknown digest",
       withSigner(good,
                  [&](Fields& signer) {
                    signer[2] =
                        withOther(signer[2], "2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.9");
                  }),
       "unsupported digest 2.16.840.1.101.3.4.2.9"},
      {"no root", messageBy(family, {chain[0], chain[1]}), "Test Root CA"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(problemWith(c.message), HasSubstr(c.complaint)) << c.name;
  }
}

}  // namespace

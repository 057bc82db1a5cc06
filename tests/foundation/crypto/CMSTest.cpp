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

/// Two values of an attribute, in the order of DER.
const std::string kShorter = DER::element(DER::kOctetString, "short");
const std::string kLonger = DER::element(DER::kOctetString, "longer value");

std::string messageBy(const Family& family, const std::vector<Certificate>& certificates) {
  const auto message =
      CMS::signDetached(bytesOf(kContent), family.leaf.identity(), certificates, kSigningTime,
                        {{kListOID, {Data(kLonger), Data(kShorter)}}});
  EXPECT_EQ(problemOf(message), "");
  return std::string(message->text());
}
std::string messageBy(const Family& family) { return messageBy(family, family.chain()); }

std::string problemWith(std::string_view message, std::string_view content = kContent) {
  return problemOf(
      CMS::verifyDetached(keepForFuzzing("SignedMessage", bytesOf(message)), bytesOf(content)));
}

class CMSTest : public testing::TestWithParam<KeyKind> {
 protected:
  Family family_ = makeFamily({.key = GetParam()});
};
INSTANTIATE_TEST_SUITE_P(EveryKey, CMSTest, testing::Values(KeyKind::rsa, KeyKind::p256));

TEST_P(CMSTest, SignedMessagesVerify) {
  const std::string message = messageBy(family_);
  const auto signer = CMS::verifyDetached(bytesOf(message), bytesOf(kContent));
  ASSERT_EQ(problemOf(signer), "");
  EXPECT_EQ(signer->certificate.der(), family_.leaf.der());
  ASSERT_EQ(signer->chain.size(), 3U);
  EXPECT_EQ(signer->chain.back().der(), family_.root.der());
  EXPECT_EQ(signer->signingTime, kSigningTime);
  const auto list = std::ranges::find(signer->signedAttributes, kListOID, &CMS::Attribute::oid);
  ASSERT_NE(list, signer->signedAttributes.end());
  EXPECT_THAT(list->values, ElementsAre(Data(kShorter), Data(kLonger)));
  EXPECT_EQ(message, messageBy(family_)) << "the same input gives the same bytes";
  EXPECT_THAT(problemWith(message, "other content"), HasSubstr("messageDigest"));
}

TEST_P(CMSTest, MessagesOfAnotherWriterVerify) {
  const std::vector<std::string> ways[] = {{}, {"-keyid"}, {"-md", "sha384"}, {"-noattr"}};
  for (const auto& options : ways) {
    const Data message = makeSignedMessage(kContent, family_.leaf, options, family_.issuersPEM());
    EXPECT_EQ(problemWith(message.text()), "") << testing::PrintToString(options);
  }
}

using Fields = std::vector<std::string>;

/// The elements inside an element, each with its header.
Fields elementsIn(std::string_view whole) {
  Fields elements;
  DER::Reader reader(DER::Reader(bytesOf(whole)).next()->content);
  while (const auto element = reader.next()) elements.emplace_back(textOf(element->whole));
  return elements;
}
std::string elementOf(std::uint8_t tag, const Fields& fields) {
  return DER::element(tag, foundation::joined(fields, ""));
}

using Change = std::function<std::string(std::string)>;

/// The message with this field of its SignedData changed.
std::string withField(std::string_view message, std::size_t index, const Change& change) {
  Fields info = elementsIn(message);
  Fields fields = elementsIn(elementsIn(info[1])[0]);
  fields[index] = change(fields[index]);
  info[1] = elementOf(DER::kContext0, {elementOf(DER::kSequence, fields)});
  return elementOf(DER::kSequence, info);
}
/// The same for a field of its signer: version, issuer and serial number, digest, signed
/// attributes, algorithm, signature.
std::string withSignerField(std::string_view message, std::size_t index, const Change& change) {
  return withField(message, 4, [&](const std::string& signers) {
    Fields signer = elementsIn(elementsIn(signers)[0]);
    signer[index] = change(signer[index]);
    return elementOf(DER::kSet, {elementOf(DER::kSequence, signer)});
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

/// A release of the platform's own tool signed attribute values that were not in DER order.
TEST(CMSReading, ValuesOutOfOrderVerifyAsTheyWereSigned) {
  const auto family = makeFamily({.key = KeyKind::rsa});
  std::string message = messageBy(family);
  message.replace(message.find(kShorter + kLonger), (kShorter + kLonger).size(),
                  kLonger + kShorter);
  EXPECT_NE(problemWith(message), "");
  std::string attributes;
  withSignerField(message, 3, [&](const std::string& field) { return attributes = field; });
  attributes[0] = static_cast<char>(DER::kSet);
  const TemporaryFolder folder;
  const std::string signature =
      outputOf({"openssl", "dgst", "-sha256", "-sign", folder.write("key", family.leaf.keyPEM()),
                folder.write("attributes", attributes)});
  EXPECT_EQ(problemWith(withSignerField(
                message, 5,
                [&](const std::string&) { return DER::element(DER::kOctetString, signature); })),
            "");
}

TEST(CMSReading, IndefiniteLengthsPiecesAndTrailingZerosAreAccepted) {
  const std::string message = messageBy(makeFamily());
  EXPECT_EQ(problemWith(indefinite(message, 5) + std::string(9, '\0')), "");
  const auto inPieces = [](const std::string& signature) {
    return "\x24\x80" + DER::element(DER::kOctetString, signature.substr(2, 5)) +
           DER::element(DER::kOctetString, signature.substr(7)) + std::string(2, '\0');
  };
  EXPECT_EQ(problemWith(withSignerField(message, 5, inPieces)), "");
}

TEST(CMSReading, FaultsAreNamed) {
  const auto family = makeFamily();
  const std::string good = messageBy(family);
  const std::string bare(makeBareSignature(kContent, family).text());
  std::string badSignature = good;
  badSignature.back() = static_cast<char>(badSignature.back() ^ 1);
  const auto withOther = [](std::string text, const char* type, const char* otherType) {
    const std::string oid = DER::objectIdentifier(type);
    return text.replace(text.find(oid), oid.size(), DER::objectIdentifier(otherType));
  };
  const auto withTag = [](char tag, std::size_t at = 0) -> Change {
    return [=](std::string field) { return field.replace(at, 1, 1, tag); };
  };
  const auto insteadOf = [](const std::string& other) -> Change {
    return [=](const std::string&) { return other; };
  };
  const Change withFirstTwice = [](const std::string& field) {
    Fields elements = elementsIn(field);
    elements.push_back(elements[0]);
    return elementOf(static_cast<std::uint8_t>(field[0]), elements);
  };
  const Change withUnknownDigest = [&](const std::string& field) {
    return withOther(field, "2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.9");
  };
  const std::string tag = "malformed encoding of a tag";
  const struct {
    const char* name;
    std::string message;
    std::string complaint;
  } cases[] = {
      {"truncated", good.substr(0, good.size() - 1), "malformed encoding"},
      {"nested without end", repeated("\x30\x80", 100), "malformed encoding"},
      {"something behind it", good + "x", "malformed encoding at byte"},
      {"tag of two bytes", "\x3f\x10" + good.substr(1), tag},
      {"certificates in a primitive element", withField(good, 3, withTag('\x80')), tag},
      {"issuer in a primitive sequence", withSignerField(good, 1, withTag('\x10', 2)), tag},
      {"digests in a primitive set", withField(good, 1, withTag('\x11')), tag},
      {"too large", good + std::string(1 << 20, '\0'), "bytes are too many"},
      {"too many certificates",
       messageBy(family, std::vector<Certificate>(65, family.leaf.certificate())),
       "certificates: more than 64"},
      {"attribute twice", withSignerField(good, 3, withFirstTwice), "is repeated"},
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
      {"certificate truncated", withField(good, 3, insteadOf(DER::element(DER::kContext0, "\x30"))),
       "malformed encoding"},
      {"two signers", withField(good, 4, withFirstTwice), "not exactly one signer"},
      {"empty signer", withField(good, 4, insteadOf(fromHex("3102 3000"))), "malformed encoding"},
      {"unknown digest", withSignerField(good, 2, withUnknownDigest),
       "unsupported digest 2.16.840.1.101.3.4.2.9"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(problemWith(c.message), HasSubstr(c.complaint)) << c.name;
  }
  EXPECT_NE(problemOf(CMS::signDetached({}, family.leaf.identity(), {}, Date(), {{"1.x", {}}})), "")
      << "a malformed identifier";
}

}  // namespace

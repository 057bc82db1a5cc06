#include <algorithm>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/CMS.h"
#include "foundation/crypto/DER.h"
#include "tests/support/Identities.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::bytesOf;
using foundation::Certificate;
using foundation::Data;
using foundation::Date;
namespace CMS = foundation::CMS;
namespace DER = foundation::DER;

constexpr std::string_view kContent = "what is signed";
constexpr const char* kListOID = "1.2.840.113635.100.9.2";

std::vector<Certificate> chainOf(const test::Family& family) {
  return {family.leaf.certificate(), family.intermediate.certificate(), family.root.certificate()};
}

Date signingTime() { return std::chrono::sys_days{std::chrono::year{2026} / 3 / 9}; }

/// An attribute with several values, handed over in the wrong order.
CMS::Attribute listAttribute() {
  return {kListOID,
          {Data(DER::element(DER::kOctetString, "longer value")),
           Data(DER::element(DER::kOctetString, "short"))}};
}

std::string messageBy(const test::Family& family, const std::vector<Certificate>& certificates) {
  const auto message = CMS::signDetached(bytesOf(kContent), family.leaf.identity(), certificates,
                                         signingTime(), {listAttribute()});
  if (!message) throw std::runtime_error(message.error().localizedDescription());
  return std::string(message->text());
}

std::string messageBy(const test::Family& family) { return messageBy(family, chainOf(family)); }

std::string problemOf(std::string_view message, std::string_view content = kContent) {
  const auto signer = CMS::verifyDetached(bytesOf(message), bytesOf(content));
  return signer ? "" : signer.error().localizedDescription();
}

class EveryKey : public testing::TestWithParam<test::KeyKind> {
 protected:
  test::Family family_ = test::makeFamily({.key = GetParam()});
};
INSTANTIATE_TEST_SUITE_P(CMS, EveryKey, testing::Values(test::KeyKind::rsa, test::KeyKind::p256));

TEST_P(EveryKey, SignedMessagesVerify) {
  const std::string message = messageBy(family_);
  const auto signer = CMS::verifyDetached(bytesOf(message), bytesOf(kContent));
  ASSERT_TRUE(signer) << signer.error().localizedDescription();
  EXPECT_EQ(signer->certificate.der(), family_.leaf.der());
  ASSERT_EQ(signer->chain.size(), 3U);
  EXPECT_EQ(signer->chain.back().der(), family_.root.der());
  EXPECT_EQ(signer->signingTime, signingTime());
  const auto list = std::ranges::find(signer->signedAttributes, kListOID, &CMS::Attribute::oid);
  ASSERT_NE(list, signer->signedAttributes.end());
  EXPECT_THAT(list->values,
              testing::ElementsAre(listAttribute().values[1], listAttribute().values[0]));
  EXPECT_EQ(message, messageBy(family_)) << "the same input gives the same bytes";
  EXPECT_THAT(problemOf(message, "other content"), testing::HasSubstr("messageDigest"));
}

TEST_P(EveryKey, MessagesOfAnotherWriterVerify) {
  const test::TemporaryFolder folder;
  folder.write("content", kContent);
  folder.write("leaf.pem", family_.leaf.certificatePEM());
  folder.write("key.pem", family_.leaf.keyPEM());
  folder.write("others.pem", family_.intermediate.certificatePEM() + family_.root.certificatePEM());
  for (const std::string option : {"", "-keyid", "-md sha384", "-noattr"}) {
    test::outputOf({"sh", "-c",
                    "cd " + folder.path().string() +
                        " && openssl cms -sign -binary -outform DER -in content -signer leaf.pem "
                        "-inkey key.pem -certfile others.pem -out message " +
                        option});
    EXPECT_EQ(problemOf(test::contentsOf(folder / "message")), "") << option;
  }
}

/// The same elements with indefinite lengths down to this depth.
std::string indefinite(std::string_view elements, int depth) {
  std::string out;
  DER::Reader reader(bytesOf(elements));
  while (const auto element = reader.next()) {
    if (depth == 0 || !(element->tag & 0x20)) {
      out += foundation::textOf(element->whole);
      continue;
    }
    out += static_cast<char>(element->tag);
    out += '\x80';
    out += indefinite(foundation::textOf(element->content), depth - 1);
    out += std::string(2, '\0');
  }
  return out;
}

/// The message's signed attributes as they are signed: with the tag of a SET.
std::string signedAttributes(std::string_view message) {
  DER::Reader content(DER::single(bytesOf(message), DER::kSequence)->content);
  content.next();
  DER::Reader fields(DER::single(content.next(DER::kContext0)->content, DER::kSequence)->content);
  for (int i = 0; i < 4; ++i) fields.next();
  DER::Reader signer(DER::single(fields.next(DER::kSet)->content, DER::kSequence)->content);
  for (int i = 0; i < 3; ++i) signer.next();
  std::string attributes(foundation::textOf(signer.next(DER::kContext0)->whole));
  attributes[0] = static_cast<char>(DER::kSet);
  return attributes;
}

std::string signedByRSA(const test::MadeIdentity& signer, std::string_view text) {
  const foundation::Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, signer.nativeKey());
  std::vector<unsigned char> signature(512);
  std::size_t size = signature.size();
  EVP_DigestSign(context.get(), signature.data(), &size,
                 reinterpret_cast<const unsigned char*>(text.data()), text.size());
  return {signature.begin(), signature.begin() + static_cast<std::ptrdiff_t>(size)};
}

/// A release of the platform's own tool signed attribute values that were not in DER order.
TEST(CMSReading, ValuesOutOfOrderVerifyAsTheyWereSigned) {
  const auto family = test::makeFamily({.key = test::KeyKind::rsa});
  std::string message = messageBy(family);
  const std::string longer(listAttribute().values[0].text());
  const std::string shorter(listAttribute().values[1].text());
  message.replace(message.find(shorter + longer), shorter.size() + longer.size(), longer + shorter);
  EXPECT_NE(problemOf(message), "");
  const std::string signature = signedByRSA(family.leaf, signedAttributes(message));
  message.replace(message.size() - signature.size(), signature.size(), signature);
  EXPECT_EQ(problemOf(message), "");
}

/// The message with the fields of its SignedData changed.
std::string withFields(std::string_view message,
                       const std::function<void(std::vector<std::string>&)>& change) {
  DER::Reader info(DER::single(bytesOf(message), DER::kSequence)->content);
  const std::string type(foundation::textOf(info.next()->whole));
  DER::Reader reader(DER::single(info.next(DER::kContext0)->content, DER::kSequence)->content);
  std::vector<std::string> fields;
  while (const auto field = reader.next()) fields.emplace_back(foundation::textOf(field->whole));
  change(fields);
  const std::string all = foundation::joined(fields, "");
  return DER::element(DER::kSequence,
                      type + DER::element(DER::kContext0, DER::element(DER::kSequence, all)));
}

/// Each in one SignerInfo's encoding, which `change` gets without its header.
std::string withSigner(std::string_view message,
                       const std::function<std::string(const std::string&)>& change) {
  return withFields(message, [&](auto& fields) {
    const auto set = DER::single(bytesOf(fields[4]), DER::kSet);
    fields[4] = DER::element(DER::kSet, change(std::string(foundation::textOf(set->content))));
  });
}

/// With the signature, the last field of the signer, as a constructed string of two pieces.
std::string withSignatureInPieces(std::string_view message) {
  return withSigner(message, [](const std::string& signer) {
    std::string fields;
    DER::Reader reader(DER::single(bytesOf(signer), DER::kSequence)->content);
    std::string_view signature;
    while (const auto field = reader.next()) {
      if (reader.atEnd()) {
        signature = foundation::textOf(field->content);
      } else {
        fields += foundation::textOf(field->whole);
      }
    }
    const std::string pieces =
        "\x24\x80" + DER::element(DER::kOctetString, signature.substr(0, 5)) +
        DER::element(DER::kOctetString, signature.substr(5)) + std::string(2, '\0');
    return DER::element(DER::kSequence, fields + pieces);
  });
}

TEST(CMSReading, IndefiniteLengthsPiecesAndTrailingZerosAreAccepted) {
  const std::string message = messageBy(test::makeFamily());
  EXPECT_EQ(problemOf(indefinite(message, 5) + std::string(9, '\0')), "");
  EXPECT_EQ(problemOf(withSignatureInPieces(message)), "");
}

/// With the tag of its outermost sequence in the form for numbers above 30.
std::string withLongTag(const std::string& message) { return "\x3f\x10" + message.substr(1); }

/// With its first signed attribute twice.
std::string withRepeatedAttribute(std::string_view message) {
  return withSigner(message, [](const std::string& signer) {
    std::string fields;
    DER::Reader reader(DER::single(bytesOf(signer), DER::kSequence)->content);
    while (const auto field = reader.next()) {
      if (field->tag != DER::kContext0) {
        fields += foundation::textOf(field->whole);
        continue;
      }
      const auto first = DER::Reader(field->content).next();
      fields += DER::element(DER::kContext0, std::string(foundation::textOf(first->whole)) +
                                                 std::string(foundation::textOf(field->content)));
    }
    return DER::element(DER::kSequence, fields);
  });
}

TEST(CMSReading, FaultsAreNamed) {
  const auto family = test::makeFamily();
  const auto chain = chainOf(family);
  const std::string good = messageBy(family);
  std::string badSignature = good;
  badSignature.back() = static_cast<char>(badSignature.back() ^ 1);
  std::string nested;
  for (int i = 0; i < 100; ++i) nested += "\x30\x80";
  const std::string bare(test::makeBareSignature(kContent, family).text());
  const auto withOther = [](std::string text, const char* type, const char* otherType) {
    const std::string oid = DER::objectIdentifier(type);
    return text.replace(text.find(oid), oid.size(), DER::objectIdentifier(otherType));
  };
  const struct {
    const char* name;
    std::string message;
    const char* complaint;
  } cases[] = {
      {"cut off", good.substr(0, good.size() - 1), "malformed encoding"},
      {"nested without end", nested, "malformed encoding"},
      {"something behind it", good + "x", "malformed encoding at byte"},
      {"tag of two bytes", withLongTag(good), "malformed encoding of a tag"},
      {"certificates in a primitive element",
       withFields(good, [](auto& fields) { fields[3][0] = static_cast<char>(0x80); }),
       "malformed encoding of a tag"},
      {"issuer in a primitive sequence",
       withSigner(good,
                  [](std::string signer) {
                    const std::size_t name = DER::headerOf(bytesOf(signer))->size + 3 + 2;
                    EXPECT_EQ(signer[name], 0x30);
                    signer[name] = 0x10;
                    return signer;
                  }),
       "malformed encoding of a tag"},
      {"digests in a primitive set", withFields(good, [](auto& fields) { fields[1][0] = 0x11; }),
       "malformed encoding of a tag"},
      {"too large", good + std::string(1 << 20, '\0'), "bytes are too many"},
      {"too many certificates",
       messageBy(family, std::vector<Certificate>(65, family.leaf.certificate())),
       "certificates: more than 64"},
      {"attribute twice", withRepeatedAttribute(good), "is repeated"},
      {"other type of message", withOther(good, "1.2.840.113549.1.7.2", "1.2.840.113549.1.7.9"),
       "no signed data"},
      {"other content type", withOther(good, "1.2.840.113549.1.7.1", "1.2.840.113549.1.7.5"),
       "contentType attribute"},
      {"content inside", std::string(test::makeSignedMessage(kContent, family.leaf).text()),
       "holds content of its own"},
      {"one bit of the signature", badSignature, "not the signer's"},
      {"no certificates", messageBy(family, {}), "among the 0"},
      {"of other content, without attributes",
       std::string(test::makeBareSignature("other content", family).text()),
       "not the signer's over the content"},
      {"of another type, without attributes",
       withOther(bare, "1.2.840.113549.1.7.1", "1.2.840.113549.1.7.5"), "no signed attributes"},
      {"certificate cut off",
       withFields(good, [](auto& fields) { fields[3] = DER::element(DER::kContext0, "\x30"); }),
       "malformed encoding"},
      {"two signers", withSigner(good, [](const auto& one) { return one + one; }),
       "not exactly one signer"},
      {"empty signer",
       withSigner(good, [](const auto&) { return DER::element(DER::kSequence, ""); }),
       "malformed encoding"},
      {"unknown digest",
       withSigner(good,
                  [&](const auto& one) {
                    return withOther(one, "2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.9");
                  }),
       "unsupported digest 2.16.840.1.101.3.4.2.9"},
      {"no root", messageBy(family, {chain[0], chain[1]}), "Test Root CA"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(problemOf(c.message), testing::HasSubstr(c.complaint)) << c.name;
  }
}

}  // namespace

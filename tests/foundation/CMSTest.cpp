#include <algorithm>
#include <array>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "foundation/CMS.h"
#include "foundation/ChildProcess.h"
#include "foundation/DER.h"
#include "foundation/FileManager.h"
#include "tests/support/Identities.h"
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

test::Family familyWith(test::KeyKind key) {
  test::CertificateOptions options;
  options.key = key;
  return test::makeFamily(options);
}

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

Data messageBy(const test::Family& family, const std::vector<Certificate>& certificates) {
  auto message = CMS::signDetached(bytesOf(kContent), family.leaf.identity(), certificates,
                                   signingTime(), {listAttribute()});
  if (!message) throw std::runtime_error(message.error().localizedDescription());
  return *message;
}

Data messageBy(const test::Family& family) { return messageBy(family, chainOf(family)); }

std::string problemOf(foundation::Bytes message, std::string_view content = kContent) {
  const auto signer = CMS::verifyDetached(message, bytesOf(content));
  return signer ? "" : signer.error().localizedDescription();
}

/// The command-line program of the crypto library, as another reader and writer of the format.
struct OpenSSL {
  test::TemporaryFolder folder;

  bool run(std::vector<std::string> arguments, std::string& output) const {
    arguments.insert(arguments.begin(), "openssl");
    auto child = foundation::ChildProcess::launch({.executable = "/usr/bin/env",
                                                   .arguments = std::move(arguments),
                                                   .workingDirectory = folder.path()});
    if (!child) throw std::runtime_error(child.error().localizedDescription());
    const auto end = child->waitUntilExit();
    output = child->readStandardErrorToEnd().text();
    return end.reason == foundation::Termination::Reason::exited && end.status == 0;
  }
};

class EveryKey : public testing::TestWithParam<test::KeyKind> {};
INSTANTIATE_TEST_SUITE_P(CMS, EveryKey, testing::Values(test::KeyKind::rsa, test::KeyKind::p256));

TEST_P(EveryKey, SignedMessagesVerify) {
  const auto family = familyWith(GetParam());
  const auto signer = CMS::verifyDetached(messageBy(family).bytes(), bytesOf(kContent));
  ASSERT_TRUE(signer) << signer.error().localizedDescription();
  EXPECT_EQ(signer->certificate.der(), family.leaf.der());
  ASSERT_EQ(signer->chain.size(), 3U);
  EXPECT_EQ(signer->chain.back().der(), family.root.der());
  EXPECT_EQ(signer->signingTime, signingTime());
  const auto& attributes = signer->signedAttributes;
  const auto list = std::find_if(attributes.begin(), attributes.end(),
                                 [](const auto& each) { return each.oid == kListOID; });
  ASSERT_NE(list, attributes.end());
  EXPECT_THAT(list->values,
              testing::ElementsAre(listAttribute().values[1], listAttribute().values[0]));
  EXPECT_EQ(messageBy(family), messageBy(family)) << "the same input gives the same bytes";
  EXPECT_THAT(problemOf(messageBy(family).bytes(), "other content"),
              testing::HasSubstr("messageDigest"));
}

TEST_P(EveryKey, AnotherReaderAcceptsTheMessage) {
  const auto family = familyWith(GetParam());
  const OpenSSL openssl;
  openssl.folder.write("message", messageBy(family).text());
  openssl.folder.write("content", kContent);
  openssl.folder.write("root.pem", family.root.certificatePEM());
  std::string output;
  EXPECT_TRUE(openssl.run({"cms", "-verify", "-binary", "-inform", "DER", "-in", "message",
                           "-content", "content", "-CAfile", "root.pem", "-purpose", "any"},
                          output))
      << output;
}

TEST_P(EveryKey, MessagesOfAnotherWriterVerify) {
  const auto family = familyWith(GetParam());
  const OpenSSL openssl;
  openssl.folder.write("content", kContent);
  openssl.folder.write("leaf.pem", family.leaf.certificatePEM());
  openssl.folder.write("key.pem", family.leaf.keyPEM());
  openssl.folder.write("others.pem",
                       family.intermediate.certificatePEM() + family.root.certificatePEM());
  for (const auto& further : {std::vector<std::string>{}, std::vector<std::string>{"-keyid"},
                              std::vector<std::string>{"-md", "sha384"}}) {
    std::vector<std::string> arguments{"cms",     "-sign",     "-binary",    "-outform", "DER",
                                       "-in",     "content",   "-signer",    "leaf.pem", "-inkey",
                                       "key.pem", "-certfile", "others.pem", "-out",     "message"};
    arguments.insert(arguments.end(), further.begin(), further.end());
    std::string output;
    ASSERT_TRUE(openssl.run(arguments, output)) << output;
    const std::string message = test::contentsOf(openssl.folder / "message");
    EXPECT_EQ(problemOf(bytesOf(message)), "") << testing::PrintToString(further);
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

TEST(CMSReading, IndefiniteLengthsAndTrailingZerosAreAccepted) {
  const auto message = messageBy(familyWith(test::KeyKind::p256));
  const std::string padded = indefinite(message.text(), 5) + std::string(9, '\0');
  EXPECT_EQ(problemOf(bytesOf(padded)), "");
}

std::string signedByRSA(const test::MadeIdentity& signer, const std::string& bytes) {
  const foundation::Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, signer.nativeKey());
  std::string signature(512, '\0');
  std::size_t size = signature.size();
  EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                 reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  signature.resize(size);
  return signature;
}

/// A release of the platform's own tool signed attribute values that were not in DER order.
TEST(CMSReading, ValuesOutOfOrderVerifyAsTheyWereSigned) {
  const auto family = familyWith(test::KeyKind::rsa);
  std::string message(messageBy(family).text());
  const auto& values = listAttribute().values;
  const std::string sorted = std::string(values[1].text()) + std::string(values[0].text());
  message.replace(message.find(sorted), sorted.size(),
                  std::string(values[0].text()) + std::string(values[1].text()));

  DER::Reader content(DER::single(bytesOf(message), DER::kSequence)->content);
  content.next();
  DER::Reader fields(DER::single(content.next(DER::kContext0)->content, DER::kSequence)->content);
  for (int i = 0; i < 4; ++i) fields.next();
  DER::Reader signer(DER::single(fields.next(DER::kSet)->content, DER::kSequence)->content);
  for (int i = 0; i < 3; ++i) signer.next();
  std::string attributes(foundation::textOf(signer.next(DER::kContext0)->whole));
  attributes[0] = static_cast<char>(DER::kSet);
  EXPECT_NE(problemOf(bytesOf(message)), "");
  const std::string signature = signedByRSA(family.leaf, attributes);
  message.replace(message.size() - signature.size(), signature.size(), signature);
  EXPECT_EQ(problemOf(bytesOf(message)), "");
}

TEST(CMSReading, StringsInPiecesAreJoined) {
  const std::string pieces = std::string("\x30\x80\x24\x80\x04\x02", 6) + "ab" +
                             std::string("\x24\x03\x04\x01", 4) + "c" + std::string(4, '\0');
  const auto definite = DER::definiteForm(bytesOf(pieces));
  ASSERT_TRUE(definite) << definite.error().localizedDescription();
  EXPECT_EQ(definite->text(), DER::element(DER::kSequence, DER::element(DER::kOctetString, "abc")));
}

TEST(CMSReading, FaultsAreNamed) {
  const auto family = familyWith(test::KeyKind::p256);
  const auto chain = chainOf(family);
  const std::string good(messageBy(family).text());
  const auto changed = [&](std::string_view what, std::string_view with) {
    std::string message = good;
    message.replace(message.find(what), what.size(), with);
    return message;
  };
  const std::string data = DER::objectIdentifier("1.2.840.113549.1.7.1");
  std::string badSignature = good;
  badSignature.back() = static_cast<char>(badSignature.back() ^ 1);
  const std::string attached = std::string(test::makeSignedMessage(kContent, family.leaf).text());
  std::string nested;
  for (int i = 0; i < 100; ++i) nested += std::string("\x30\x80", 2);

  for (const auto& [name, message, complaint] : {
           std::tuple<const char*, std::string, const char*>{"empty", "", "malformed encoding"},
           {"cut off", good.substr(0, good.size() - 1), "malformed encoding"},
           {"nested without end", nested, "malformed encoding"},
           {"something behind it", good + "x", "malformed encoding"},
           {"other type of message",
            changed(DER::objectIdentifier("1.2.840.113549.1.7.2"),
                    DER::objectIdentifier("1.2.840.113549.1.7.3")),
            "no signed data"},
           {"other content type", changed(data, DER::objectIdentifier("1.2.840.113549.1.7.5")),
            "contentType attribute"},
           {"content inside", attached, "holds content of its own"},
           {"one bit of the signature", badSignature, "not the signer's"},
           {"no certificates", std::string(messageBy(family, {}).text()), "among the 0"},
           {"no root", std::string(messageBy(family, {chain[0], chain[1]}).text()), "Test Root CA"},
           {"no intermediate", std::string(messageBy(family, {chain[0], chain[2]}).text()),
            "Test Developer Relations CA"},
       }) {
    EXPECT_THAT(problemOf(bytesOf(message)), testing::HasSubstr(complaint)) << name;
  }
}

/// Whatever byte is changed, reading ends, and never with another signer.
TEST(CMSReading, EveryDamagedByteIsSurvived) {
  const auto family = familyWith(test::KeyKind::p256);
  const std::string good(messageBy(family).text());
  constexpr std::array kMasks = {0x01, 0x80, 0xff};
  for (std::size_t i = 0; i < good.size(); ++i) {
    std::string message = good;
    message[i] = static_cast<char>(message[i] ^ kMasks[i % kMasks.size()]);
    const auto signer = CMS::verifyDetached(bytesOf(message), bytesOf(kContent));
    EXPECT_TRUE(!signer || signer->certificate.der() == family.leaf.der()) << "byte " << i;
    ASSERT_NE(problemOf(bytesOf(good).first(i)), "") << "cut at " << i;
  }
}

}  // namespace

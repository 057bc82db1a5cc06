#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/DER.h"
#include "foundation/crypto/private/DeterministicSignature.h"

namespace {

using namespace foundation;
using Key = Handle<EVP_PKEY, EVP_PKEY_free>;

/// The P-256 key of the examples in RFC 6979, appendix A.2.5.
Key exampleKey() {
  constexpr unsigned char kNumber[] = {0xC9, 0xAF, 0xA9, 0xD8, 0x45, 0xBA, 0x75, 0x16,
                                       0x6B, 0x5C, 0x21, 0x57, 0x67, 0xB1, 0xD6, 0x93,
                                       0x4E, 0x50, 0xC3, 0xDB, 0x36, 0xE8, 0x9B, 0x12,
                                       0x7B, 0x8A, 0x62, 0x2B, 0x12, 0x0F, 0x67, 0x21};
  const std::string der =
      DER::element(DER::kSequence,
                   "\x02\x01\x01" +
                       DER::element(DER::kOctetString,
                                    {reinterpret_cast<const char*>(kNumber), sizeof kNumber}) +
                       DER::element(DER::kContext0, DER::objectIdentifier("1.2.840.10045.3.1.7")));
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  return Key(d2i_PrivateKey(EVP_PKEY_EC, nullptr, &at, static_cast<long>(der.size())));
}

TEST(DeterministicSignature, GivesThePublishedNumbers) {
  const Key key = exampleKey();
  ASSERT_TRUE(key);
  struct Case {
    std::string_view message;
    std::string r;
    std::string s;
  };
  for (const Case& c :
       {Case{"sample", "00efd48b2aacb6a8fd1140dd9cd45e81d69d2c877b56aaf991c34d0ea84eaf3716",
             "00f7cb1c942d657c41d436c7a1b6e29f65f3e900dbb9aff4064dc4ab2f843acda8"},
        Case{"test", "00f1abb023518351cd71d881567b1ea663ed3efcf6c5132b354f28d3b0b7d38367",
             "19f4113742a2b14bd25926b49c649155f267e60d3814b4c0cc84250e46f0083"}}) {
    const auto signature = deterministicSignature(sha256(bytesOf(c.message)), key.get());
    ASSERT_TRUE(signature);
    const std::string hex = lowercaseHex(bytesOf(*signature));
    EXPECT_NE(hex.find(c.r), std::string::npos) << hex;
    EXPECT_TRUE(hex.ends_with(c.s)) << hex;
  }
}

TEST(DeterministicSignature, OtherKeysAreLeftToTheLibrary) {
  const auto digest = sha256(bytesOf("x"));
  EXPECT_FALSE(deterministicSignature(digest, Key(EVP_EC_gen("P-384")).get()));
  EXPECT_FALSE(deterministicSignature(digest, Key(EVP_RSA_gen(1024u)).get()));
}

}  // namespace

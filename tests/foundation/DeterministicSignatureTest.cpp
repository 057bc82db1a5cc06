#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include "foundation/DeterministicSignature.h"
#include "foundation/Handle.h"
#include "foundation/Text.h"

namespace {

using namespace foundation;
using Key = Handle<EVP_PKEY, EVP_PKEY_free>;
using KeyContext = Handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Number = Handle<BIGNUM, BN_free>;
using Group = Handle<EC_GROUP, EC_GROUP_free>;
using Point = Handle<EC_POINT, EC_POINT_free>;
using Builder = Handle<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>;
using Parameters = Handle<OSSL_PARAM, OSSL_PARAM_free>;

/// A P-256 key from its private number in hexadecimal.
Key keyFrom(const char* hex) {
  BIGNUM* raw = nullptr;
  EXPECT_GT(BN_hex2bn(&raw, hex), 0);
  const Number secret(raw);
  const Group group(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
  const Point point(EC_POINT_new(group.get()));
  EXPECT_EQ(EC_POINT_mul(group.get(), point.get(), secret.get(), nullptr, nullptr, nullptr), 1);
  unsigned char open[65];
  EXPECT_EQ(EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, open,
                               sizeof open, nullptr),
            sizeof open);
  const Builder builder(OSSL_PARAM_BLD_new());
  OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "prime256v1", 0);
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, secret.get());
  OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, open, sizeof open);
  const Parameters parameters(OSSL_PARAM_BLD_to_param(builder.get()));
  const KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* key = nullptr;
  EXPECT_EQ(EVP_PKEY_fromdata_init(context.get()), 1);
  EXPECT_EQ(EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEYPAIR, parameters.get()), 1);
  return Key(key);
}

// RFC 6979, appendix A.2.5.
TEST(DeterministicSignature, GivesThePublishedNumbers) {
  const Key key = keyFrom("C9AFA9D845BA75166B5C215767B1D6934E50C3DB36E89B127B8A622B120F6721");
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

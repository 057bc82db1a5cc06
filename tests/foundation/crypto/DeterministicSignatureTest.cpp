#include <openssl/evp.h>

#include "foundation/crypto/DER.h"
#include "foundation/crypto/private/DeterministicSignature.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

/// The example of RFC 6979, appendix A.2.5, for P-256.
TEST(DeterministicSignature, GivesThePublishedNumbers) {
  const std::string number =
      fromHex("c9afa9d845ba75166b5c215767b1d6934e50c3db36e89b127b8a622b120f6721");
  const std::string der =
      DER::element(DER::kSequence,
                   "\x02\x01\x01" + DER::element(DER::kOctetString, number) +
                       DER::element(DER::kContext0, DER::objectIdentifier("1.2.840.10045.3.1.7")));
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  const Handle<EVP_PKEY, EVP_PKEY_free> key(
      d2i_PrivateKey(EVP_PKEY_EC, nullptr, &at, static_cast<long>(der.size())));
  const auto signature = deterministicSignature(sha256(bytesOf("sample")), key.get());
  ASSERT_TRUE(signature);
  EXPECT_THAT(
      hexOf(*signature),
      AllOf(HasSubstr("00efd48b2aacb6a8fd1140dd9cd45e81d69d2c877b56aaf991c34d0ea84eaf3716"),
            EndsWith("00f7cb1c942d657c41d436c7a1b6e29f65f3e900dbb9aff4064dc4ab2f843acda8")));
}

}  // namespace
}  // namespace foundation

#include <chrono>

#include <openssl/core_names.h>

#include "foundation/crypto/CMS.h"
#include "foundation/crypto/DER.h"
#include "foundation/crypto/OpenSSL.h"
#include "foundation/crypto/private/CMSError.h"
#include "foundation/crypto/private/DeterministicSignature.h"

namespace foundation::CMS {

namespace {

constexpr std::string_view kSignedDataOID = "1.2.840.113549.1.7.2";
constexpr std::string_view kDataOID = "1.2.840.113549.1.7.1";
constexpr std::string_view kContentTypeOID = "1.2.840.113549.1.9.3";
constexpr std::string_view kMessageDigestOID = "1.2.840.113549.1.9.4";
constexpr std::string_view kSigningTimeOID = "1.2.840.113549.1.9.5";
constexpr std::string_view kSHA256OID = "2.16.840.1.101.3.4.2.1";
constexpr std::string_view kRSAWithSHA256OID = "1.2.840.113549.1.1.11";
constexpr std::string_view kECDSAWithSHA256OID = "1.2.840.10045.4.3.2";

std::string sequence(std::initializer_list<std::string_view> elements) {
  std::string content;
  for (const auto element : elements) content += element;
  return DER::element(DER::kSequence, content);
}

std::string digestAlgorithm() {
  return sequence({DER::objectIdentifier(kSHA256OID), DER::element(DER::kNull, "")});
}

/// UTCTime through 2049, GeneralizedTime after that (RFC 5652, 11.3).
std::string encodedTime(Date time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
  const Handle<ASN1_TIME, ASN1_TIME_free> native(ASN1_TIME_set(nullptr, seconds));
  return encoded(native.get(), i2d_ASN1_TIME);
}

std::string encodedAttribute(std::string_view oid, std::vector<std::string> values) {
  return sequence({DER::objectIdentifier(oid), DER::setOf(std::move(values))});
}

Result<std::string> signedAttributes(Bytes content, Date signingTime,
                                     const std::vector<Attribute>& further) {
  std::vector<std::string> all{
      encodedAttribute(kContentTypeOID, {DER::objectIdentifier(kDataOID)}),
      encodedAttribute(kSigningTimeOID, {encodedTime(signingTime)}),
      encodedAttribute(kMessageDigestOID,
                       {DER::element(DER::kOctetString, textOf(sha256(content)))})};
  for (const auto& attribute : further) {
    if (DER::objectIdentifier(attribute.oid).empty()) {
      return cmsError("signed attribute \"" + attribute.oid + "\": malformed object identifier");
    }
    std::vector<std::string> values;
    for (const auto& value : attribute.values) values.emplace_back(value.text());
    all.push_back(encodedAttribute(attribute.oid, std::move(values)));
  }
  return DER::setOf(std::move(all));
}

/// For curves that `deterministicSignature` does not support. OpenSSL before 3.2 ignores this and
/// uses a random nonce.
void askForDeterministicNonce(EVP_PKEY_CTX* context) {
  constexpr const char* kNonceType = "nonce-type";
  const OSSL_PARAM* settable = EVP_PKEY_CTX_settable_params(context);
  if (!settable || !OSSL_PARAM_locate_const(settable, kNonceType)) return;
  unsigned int deterministic = 1;
  const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_uint(kNonceType, &deterministic),
                                   OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX_set_params(context, parameters);
}

Result<std::string> signatureOver(std::string_view bytes, EVP_PKEY* key) {
  if (auto signature = deterministicSignature(sha256(bytesOf(bytes)), key)) return *signature;
  const DigestContextHandle context(EVP_MD_CTX_new());
  EVP_PKEY_CTX* keyContext = nullptr;
  if (!context || EVP_DigestSignInit(context.get(), &keyContext, EVP_sha256(), nullptr, key) != 1) {
    return cmsError("the private key cannot be used for signing");
  }
  askForDeterministicNonce(keyContext);
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  auto size = static_cast<std::size_t>(EVP_PKEY_get_size(key));
  std::string signature(size, '\0');
  if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, data,
                     bytes.size()) != 1) {
    return cmsError("signing with the private key failed");
  }
  signature.resize(size);
  return signature;
}

/// Empty for a key that is neither RSA nor EC.
std::string signatureAlgorithm(EVP_PKEY* key) {
  switch (EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
      return sequence({DER::objectIdentifier(kRSAWithSHA256OID), DER::element(DER::kNull, "")});
    case EVP_PKEY_EC:
      return sequence({DER::objectIdentifier(kECDSAWithSHA256OID)});
    default:
      return {};
  }
}

std::string issuerAndSerialNumber(const Certificate& certificate) {
  return sequence({encoded(X509_get_issuer_name(certificate.native()), i2d_X509_NAME),
                   encoded(X509_get0_serialNumber(certificate.native()), i2d_ASN1_INTEGER)});
}

std::string certificateSet(const std::vector<Certificate>& chain) {
  std::vector<std::string> certificates;
  certificates.reserve(chain.size());
  for (const auto& certificate : chain) certificates.emplace_back(certificate.der().text());
  std::string set = DER::setOf(std::move(certificates));
  set[0] = static_cast<char>(DER::kContext0);
  return set;
}

}  // namespace

Result<Data> signDetached(Bytes content, const Identity& identity,
                          const std::vector<Certificate>& chain, Date signingTime,
                          const std::vector<Attribute>& attributes) {
  const OpenSSLErrorScope errors;
  EVP_PKEY* key = identity.privateKey.native();
  const std::string algorithm = signatureAlgorithm(key);
  if (algorithm.empty()) return cmsError("the private key is neither RSA nor EC");
  auto attributeSet = signedAttributes(content, signingTime, attributes);
  if (!attributeSet) return attributeSet.error();
  const auto signature = signatureOver(*attributeSet, key);
  if (!signature) return signature.error();

  (*attributeSet)[0] = static_cast<char>(DER::kContext0);
  const std::string version = DER::element(DER::kInteger, std::string_view("\x01", 1));
  const std::string signer =
      sequence({version, issuerAndSerialNumber(identity.certificate), digestAlgorithm(),
                *attributeSet, algorithm, DER::element(DER::kOctetString, *signature)});
  const std::string signedData = sequence({version, DER::setOf({digestAlgorithm()}),
                                           sequence({DER::objectIdentifier(kDataOID)}),
                                           certificateSet(chain), DER::setOf({signer})});
  return Data(
      sequence({DER::objectIdentifier(kSignedDataOID), DER::element(DER::kContext0, signedData)}));
}

}  // namespace foundation::CMS

#include <algorithm>
#include <map>
#include <set>

#include <openssl/cms.h>

#include "foundation/crypto/CMS.h"
#include "foundation/crypto/CertificateChain.h"
#include "foundation/crypto/DER.h"
#include "foundation/crypto/OpenSSL.h"
#include "foundation/crypto/private/CMSError.h"

namespace foundation::CMS {

namespace {

using MessageHandle = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;

void freeCertificates(STACK_OF(X509) * certificates) { sk_X509_pop_free(certificates, X509_free); }
using CertificatesHandle = Handle<STACK_OF(X509), freeCertificates>;

/// Decoding takes many times the message's size in memory. Code signatures need a few kilobytes.
constexpr std::size_t kMaximumSize = std::size_t{1} << 20;
constexpr std::size_t kMaximumCertificates = 64;

struct SignedData {
  const ASN1_OBJECT* contentType = nullptr;
  std::vector<Certificate> certificates;
  CMS_SignerInfo* signer = nullptr;
};

/// How often each identifier byte occurs, except those that BER leaves to the writer. Absent if an
/// element is truncated, has a tag of several bytes, or is a SEQUENCE or SET marked as primitive.
std::optional<std::map<std::uint8_t, std::size_t>> tagsIn(Bytes message) {
  constexpr std::uint8_t kPrimitiveSequence = 0x10;
  constexpr std::uint8_t kPrimitiveSet = 0x11;
  constexpr std::uint8_t kEndOfContents = 0;
  constexpr std::uint8_t kOctetStringInPieces = 0x24;
  std::map<std::uint8_t, std::size_t> counts;
  while (!message.empty()) {
    const auto header = DER::headerOf(message);
    if (!header) return std::nullopt;
    ++counts[std::to_integer<std::uint8_t>(message[0])];
    message = message.subspan(header->size + (header->isConstructed ? 0 : header->length));
  }
  if (counts.contains(kPrimitiveSequence) || counts.contains(kPrimitiveSet)) return std::nullopt;
  for (const auto tag : {kEndOfContents, DER::kOctetString, kOctetStringInPieces}) {
    counts.erase(tag);
  }
  return counts;
}

/// OpenSSL also decodes the content of elements that are marked as primitive but should be
/// constructed, and small tag numbers in the form for large ones. Other readers would see something
/// else there. Re-encoding corrects the marks, except in parts that OpenSSL keeps as they were.
bool isUnambiguous(Bytes message, const CMS_ContentInfo* decoded) {
  const auto tags = tagsIn(message);
  return tags && tags == tagsIn(bytesOf(encoded(decoded, i2d_CMS_ContentInfo)));
}

Result<MessageHandle> decoded(Bytes message) {
  if (message.size() > kMaximumSize) {
    return cmsError(std::to_string(message.size()) + " bytes are too many");
  }
  const unsigned char* position = openSSLBytes(message);
  MessageHandle decoded(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(message.size())));
  if (!decoded) return cmsError("malformed encoding");
  const auto size = static_cast<std::size_t>(position - openSSLBytes(message));
  if (!isUnambiguous(message.first(size), decoded.get())) {
    return cmsError("malformed encoding of a tag");
  }
  if (!isZero(message.subspan(size))) {
    return cmsError("malformed encoding at byte " + std::to_string(size) + " of " +
                    std::to_string(message.size()));
  }
  return decoded;
}

Result<SignedData> signedDataIn(CMS_ContentInfo* message) {
  if (OBJ_obj2nid(CMS_get0_type(message)) != NID_pkcs7_signed) return cmsError("no signed data");
  if (CMS_is_detached(message) != 1) return cmsError("it holds content of its own");
  SignedData data{CMS_get0_eContentType(message), {}, nullptr};
  const CertificatesHandle certificates(CMS_get1_certs(message));
  while (X509* native = sk_X509_shift(certificates.get())) {
    data.certificates.push_back(Certificate::adopt(native));
    if (data.certificates.size() > kMaximumCertificates) {
      return cmsError("certificates: more than " + std::to_string(kMaximumCertificates));
    }
  }
  const auto* signers = CMS_get0_SignerInfos(message);
  if (sk_CMS_SignerInfo_num(signers) != 1) return cmsError("not exactly one signer");
  data.signer = sk_CMS_SignerInfo_value(signers, 0);
  return data;
}

/// In the message's order.
Result<std::vector<Attribute>> attributesOf(const CMS_SignerInfo* signer) {
  std::vector<Attribute> attributes;
  std::set<std::string> seen;
  for (int i = 0; i < CMS_signed_get_attr_count(signer); ++i) {
    X509_ATTRIBUTE* native = CMS_signed_get_attr(signer, i);
    Attribute attribute{dotted(X509_ATTRIBUTE_get0_object(native)), {}};
    if (attribute.oid.empty()) return cmsError("malformed signed attribute");
    if (!seen.insert(attribute.oid).second) {
      return cmsError("signed attribute " + attribute.oid + " is repeated");
    }
    for (int j = 0; j < X509_ATTRIBUTE_count(native); ++j) {
      attribute.values.emplace_back(encoded(X509_ATTRIBUTE_get0_type(native, j), i2d_ASN1_TYPE));
    }
    attributes.push_back(std::move(attribute));
  }
  return attributes;
}

/// Null unless the attribute has exactly one value, of this type.
template <class Native>
const Native* signedValue(const CMS_SignerInfo* signer, int attribute, int type) {
  constexpr int kOnlyValueOfOnlyAttribute = -3;
  return static_cast<const Native*>(
      CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(attribute), kOnlyValueOfOnlyAttribute, type));
}

std::optional<Date> signingTimeOf(const CMS_SignerInfo* signer) {
  const auto* time = signedValue<ASN1_TIME>(signer, NID_pkcs9_signingTime, V_ASN1_UTCTIME);
  return dateOf(
      time ? time : signedValue<ASN1_TIME>(signer, NID_pkcs9_signingTime, V_ASN1_GENERALIZEDTIME));
}

/// Null for a digest that code signatures do not use.
const EVP_MD* digestOf(const X509_ALGOR* algorithm) {
  switch (OBJ_obj2nid(algorithm->algorithm)) {
    case NID_sha1:
      return EVP_sha1();
    case NID_sha256:
      return EVP_sha256();
    case NID_sha384:
      return EVP_sha384();
    case NID_sha512:
      return EVP_sha512();
    default:
      return nullptr;
  }
}

/// Whether the algorithm goes with this digest and kind of key. Plain "rsaEncryption" goes with any
/// digest.
bool matches(const X509_ALGOR* algorithm, const EVP_MD* digest, EVP_PKEY* key) {
  const int identifier = OBJ_obj2nid(algorithm->algorithm);
  const int kind = EVP_PKEY_get_base_id(key);
  if (identifier == NID_rsaEncryption) return kind == EVP_PKEY_RSA;
  int algorithmDigest = NID_undef;
  int algorithmKey = NID_undef;
  if (!OBJ_find_sigid_algs(identifier, &algorithmDigest, &algorithmKey)) return false;
  return algorithmDigest == EVP_MD_get_type(digest) && algorithmKey == kind &&
         (kind == EVP_PKEY_RSA || kind == EVP_PKEY_EC);
}

bool isDigest(const ASN1_OCTET_STRING* stated, const EVP_MD* digest, Bytes content) {
  unsigned char computed[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  return stated &&
         EVP_Digest(content.data(), content.size(), computed, &size, digest, nullptr) == 1 &&
         std::ranges::equal(bytesOf(stated), std::as_bytes(std::span(computed, size)));
}

/// What is signed: the attributes as a SET OF in the message's order. A release of the platform's
/// own tool signed values that were not in DER order.
std::string signedBytes(const std::vector<Attribute>& attributes) {
  std::string all;
  for (const Attribute& attribute : attributes) {
    std::string values;
    for (const Data& value : attribute.values) values += value.text();
    all += DER::element(DER::kSequence,
                        DER::objectIdentifier(attribute.oid) + DER::element(DER::kSet, values));
  }
  return DER::element(DER::kSet, all);
}

bool isSignature(const ASN1_OCTET_STRING* signature, Bytes signedBytes, const EVP_MD* digest,
                 EVP_PKEY* key) {
  const DigestContextHandle context(EVP_MD_CTX_new());
  const Bytes bytes = bytesOf(signature);
  return context && EVP_DigestVerifyInit(context.get(), nullptr, digest, nullptr, key) == 1 &&
         EVP_DigestVerify(context.get(), openSSLBytes(bytes), bytes.size(),
                          openSSLBytes(signedBytes), signedBytes.size()) == 1;
}

/// RFC 5652, 5.3: only plain data may be signed without attributes, as older tools of the platform
/// did.
Result<> checkAttributes(const SignedData& data, const EVP_MD* digest, Bytes content) {
  if (CMS_signed_get_attr_count(data.signer) < 0) {
    if (OBJ_obj2nid(data.contentType) == NID_pkcs7_data) return {};
    return cmsError("no signed attributes, and the content's type " + dotted(data.contentType) +
                    " asks for them");
  }
  const auto* type = signedValue<ASN1_OBJECT>(data.signer, NID_pkcs9_contentType, V_ASN1_OBJECT);
  if (!type || OBJ_cmp(type, data.contentType) != 0) {
    return cmsError("the contentType attribute does not name the content's type");
  }
  const auto* stated =
      signedValue<ASN1_OCTET_STRING>(data.signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  if (!isDigest(stated, digest, content)) {
    return cmsError("the messageDigest attribute is not the content's digest");
  }
  return {};
}

Result<> checkSignature(const SignedData& data, const Certificate& certificate,
                        const std::vector<Attribute>& attributes, Bytes content) {
  X509_ALGOR* digestAlgorithm = nullptr;
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(data.signer, nullptr, nullptr, &digestAlgorithm, &algorithm);
  const EVP_MD* digest = digestOf(digestAlgorithm);
  if (!digest) return cmsError("unsupported digest " + dotted(digestAlgorithm->algorithm));
  if (auto checked = checkAttributes(data, digest, content); !checked) return checked;
  EVP_PKEY* key = X509_get0_pubkey(certificate.native());
  if (!key || !matches(algorithm, digest, key)) {
    return cmsError("signature algorithm " + dotted(algorithm->algorithm) +
                    " does not go with the signer's key and digest");
  }
  const bool hasAttributes = CMS_signed_get_attr_count(data.signer) >= 0;
  const std::string encodedAttributes = signedBytes(attributes);
  if (!isSignature(CMS_SignerInfo_get0_signature(data.signer),
                   hasAttributes ? bytesOf(encodedAttributes) : content, digest, key)) {
    return cmsError(std::string("the signature is not the signer's over ") +
                    (hasAttributes ? "these attributes" : "the content"));
  }
  return {};
}

Result<Signer> verifiedSigner(const SignedData& data, Bytes content) {
  const auto certificate = std::ranges::find_if(data.certificates, [&](const Certificate& each) {
    return CMS_SignerInfo_cert_cmp(data.signer, each.native()) == 0;
  });
  if (certificate == data.certificates.end()) {
    return cmsError("the signer's certificate is not among the " +
                    std::to_string(data.certificates.size()) + " that it holds");
  }
  auto attributes = attributesOf(data.signer);
  if (!attributes) return attributes.error();
  return checkSignature(data, *certificate, *attributes, content)
      .andThen([&] { return certificateChain(*certificate, data.certificates); })
      .map([&](std::vector<Certificate> chain) {
        return Signer{*certificate, std::move(chain), signingTimeOf(data.signer),
                      *std::move(attributes)};
      });
}

}  // namespace

Result<Signer> verifyDetached(Bytes message, Bytes content) {
  const OpenSSLErrorScope errors;
  const auto decodedMessage = decoded(message);
  return decodedMessage.andThen([](const MessageHandle& each) { return signedDataIn(each.get()); })
      .andThen([&](const SignedData& data) { return verifiedSigner(data, content); })
      .mapError([](const Error& error) {
        return cmsError("signature message: " + error.localizedDescription());
      });
}

}  // namespace foundation::CMS

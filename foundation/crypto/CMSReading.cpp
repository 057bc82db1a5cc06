#include <algorithm>
#include <ctime>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/CMS.h"
#include "foundation/crypto/CertificateChain.h"
#include "foundation/crypto/DER.h"

namespace foundation::CMS {

namespace {

using DigestContext = Handle<EVP_MD_CTX, EVP_MD_CTX_free>;

constexpr std::string_view kSignedDataOID = "1.2.840.113549.1.7.2";
constexpr std::string_view kDataOID = "1.2.840.113549.1.7.1";
constexpr std::string_view kContentTypeOID = "1.2.840.113549.1.9.3";
constexpr std::string_view kMessageDigestOID = "1.2.840.113549.1.9.4";
constexpr std::string_view kSigningTimeOID = "1.2.840.113549.1.9.5";
constexpr std::uint8_t kCertificateTag = DER::kSequence;
constexpr std::size_t kMaximumCertificates = 64;

Error failure(std::string description) {
  ERR_clear_error();
  return makeError("CMSErrorDomain", -1, "signature message: " + std::move(description));
}

/// Parts of the message as they lie in its bytes, whose encoding is known to be sound to the last
/// element.
struct SignedData {
  std::string contentType;
  std::vector<Certificate> certificates;
  Bytes signerInfo;
};

struct SignerInfo {
  DER::Element identifier;
  std::string digestOID;
  /// Absent: the signature is over the content itself.
  std::optional<DER::Element> attributes;
  std::string signatureOID;
  Bytes signature;
};

Result<std::vector<Certificate>> certificatesIn(Bytes set) {
  std::vector<Certificate> certificates;
  DER::Reader reader(set);
  while (const auto element = reader.next()) {
    if (element->tag != kCertificateTag) continue;  // attribute certificates say nothing here
    if (certificates.size() == kMaximumCertificates) {
      return failure("certificates: more than " + std::to_string(kMaximumCertificates));
    }
    auto certificate = Certificate::fromDER(element->whole);
    if (!certificate) {
      return failure("certificate " + std::to_string(certificates.size()) + ": " +
                     certificate.error().localizedDescription());
    }
    certificates.push_back(*std::move(certificate));
  }
  return certificates;
}

/// RFC 5652, 3 and 5.1.
Result<SignedData> signedDataIn(Bytes message) {
  const auto whole = DER::single(message, DER::kSequence);
  DER::Reader contentInfo(whole ? whole->content : Bytes());
  const auto type = contentInfo.next(DER::kObjectIdentifier);
  if (!type || DER::dotted(type->content) != kSignedDataOID) return failure("no signed data");
  const auto explicitContent = contentInfo.next(DER::kContext0);
  const auto body =
      explicitContent ? DER::single(explicitContent->content, DER::kSequence) : std::nullopt;
  DER::Reader fields(body ? body->content : Bytes());
  const auto version = fields.next(DER::kInteger);
  const auto digests = fields.next(DER::kSet);
  const auto encapsulated = fields.next(DER::kSequence);
  if (!version || !digests || !encapsulated) return failure("malformed signed data");

  DER::Reader content(encapsulated->content);
  const auto contentType = content.next(DER::kObjectIdentifier);
  if (!contentType) return failure("no content type");
  if (!content.atEnd()) return failure("it holds content of its own");

  SignedData data{DER::dotted(contentType->content), {}, {}};
  if (const auto set = fields.next(DER::kContext0)) {
    auto certificates = certificatesIn(set->content);
    if (!certificates) return certificates.error();
    data.certificates = *std::move(certificates);
  }
  fields.next(DER::kContext1);  // revocation lists
  const auto signers = fields.next(DER::kSet);
  if (!signers || !fields.atEnd()) return failure("malformed signed data");
  const auto signer = DER::single(signers->content, DER::kSequence);
  if (!signer) return failure("not exactly one signer");
  data.signerInfo = signer->content;
  return data;
}

std::string algorithmOID(const std::optional<DER::Element>& algorithm) {
  if (!algorithm) return {};
  const auto oid = DER::Reader(algorithm->content).next(DER::kObjectIdentifier);
  return oid ? DER::dotted(oid->content) : std::string();
}

/// RFC 5652, 5.3.
Result<SignerInfo> signerInfoIn(Bytes content) {
  DER::Reader fields(content);
  const auto version = fields.next(DER::kInteger);
  const auto identifier = fields.next();
  const std::string digestOID = algorithmOID(fields.next(DER::kSequence));
  if (!version || !identifier || digestOID.empty()) return failure("malformed signer");
  const auto attributes = fields.next(DER::kContext0);
  const std::string signatureOID = algorithmOID(fields.next(DER::kSequence));
  const auto signature = fields.next(DER::kOctetString);
  fields.next(DER::kContext1);  // unsigned attributes, such as a time stamp
  if (signatureOID.empty() || !signature || !fields.atEnd()) return failure("malformed signer");
  return SignerInfo{*identifier, digestOID, attributes, signatureOID, signature->content};
}

Result<std::vector<Attribute>> attributesIn(Bytes set) {
  std::vector<Attribute> attributes;
  DER::Reader reader(set);
  while (!reader.atEnd()) {
    const auto attribute = reader.next(DER::kSequence);
    DER::Reader parts(attribute ? attribute->content : Bytes());
    const auto oid = parts.next(DER::kObjectIdentifier);
    const auto values = parts.next(DER::kSet);
    if (!oid || !values || !parts.atEnd()) return failure("malformed signed attribute");
    Attribute found{DER::dotted(oid->content), {}};
    for (const auto& earlier : attributes) {
      if (earlier.oid == found.oid)
        return failure("signed attribute " + found.oid + " is repeated");
    }
    DER::Reader each(values->content);
    while (const auto value = each.next()) {
      found.values.push_back(Data::copyOf(value->whole));
    }
    attributes.push_back(std::move(found));
  }
  return attributes;
}

/// The value of an attribute that must have exactly one.
std::optional<DER::Element> singleValue(const std::vector<Attribute>& attributes,
                                        std::string_view oid) {
  for (const auto& attribute : attributes) {
    if (attribute.oid != oid || attribute.values.size() != 1) continue;
    return DER::Reader(attribute.values[0].bytes()).next();
  }
  return std::nullopt;
}

template <class T, auto Release, class Decode>
Handle<T, Release> decoded(Bytes bytes, Decode decode) {
  const auto* cursor = reinterpret_cast<const unsigned char*>(bytes.data());
  return Handle<T, Release>(decode(nullptr, &cursor, static_cast<long>(bytes.size())));
}

bool identifies(const DER::Element& identifier, const Certificate& certificate) {
  X509* native = certificate.native();
  if (identifier.tag == DER::kContext0Primitive) {
    const ASN1_OCTET_STRING* key = X509_get0_subject_key_id(native);
    return key && textOf(identifier.content) ==
                      std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(key)),
                                       static_cast<std::size_t>(ASN1_STRING_length(key)));
  }
  DER::Reader parts(identifier.content);
  const auto issuer = parts.next(DER::kSequence);
  const auto serial = parts.next(DER::kInteger);
  if (identifier.tag != DER::kSequence || !issuer || !serial) return false;
  const auto name = decoded<X509_NAME, X509_NAME_free>(issuer->whole, d2i_X509_NAME);
  const auto number = decoded<ASN1_INTEGER, ASN1_INTEGER_free>(serial->whole, d2i_ASN1_INTEGER);
  return name && number && X509_NAME_cmp(name.get(), X509_get_issuer_name(native)) == 0 &&
         ASN1_INTEGER_cmp(number.get(), X509_get0_serialNumber(native)) == 0;
}

/// Null for a digest that code signatures do not use.
const EVP_MD* digestOf(std::string_view oid) {
  if (oid == "2.16.840.1.101.3.4.2.1") return EVP_sha256();
  if (oid == "1.3.14.3.2.26") return EVP_sha1();
  if (oid == "2.16.840.1.101.3.4.2.2") return EVP_sha384();
  if (oid == "2.16.840.1.101.3.4.2.3") return EVP_sha512();
  return nullptr;
}

/// True when a signature of this algorithm over this digest can be made by a key of this kind. The
/// bare "rsaEncryption" leaves the digest to the signer's digest algorithm.
bool matches(const std::string& signatureOID, const EVP_MD* digest, EVP_PKEY* key) {
  const int algorithm = OBJ_txt2nid(signatureOID.c_str());
  const int kind = EVP_PKEY_get_base_id(key);
  if (algorithm == NID_rsaEncryption) return kind == EVP_PKEY_RSA;
  int algorithmDigest = NID_undef;
  int algorithmKey = NID_undef;
  if (!OBJ_find_sigid_algs(algorithm, &algorithmDigest, &algorithmKey)) return false;
  return algorithmDigest == EVP_MD_get_type(digest) && algorithmKey == kind &&
         (kind == EVP_PKEY_RSA || kind == EVP_PKEY_EC);
}

bool hasDigest(const std::vector<Attribute>& attributes, const EVP_MD* digest, Bytes content) {
  unsigned char computed[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(content.data(), content.size(), computed, &size, digest, nullptr) != 1) {
    return false;
  }
  const auto stated = singleValue(attributes, kMessageDigestOID);
  return stated && stated->tag == DER::kOctetString &&
         textOf(stated->content) == std::string_view(reinterpret_cast<const char*>(computed), size);
}

/// What the signature is over: the attributes as the SET that they are, not under their tag in the
/// message; without any, the content.
std::string signedBytes(const SignerInfo& signer, Bytes content) {
  std::string bytes(textOf(signer.attributes ? signer.attributes->whole : content));
  if (signer.attributes) bytes[0] = static_cast<char>(DER::kSet);
  return bytes;
}

Result<> checkSignature(const SignerInfo& signer, const EVP_MD* digest,
                        const Certificate& certificate, Bytes content) {
  EVP_PKEY* key = X509_get0_pubkey(certificate.native());
  if (!key || !matches(signer.signatureOID, digest, key)) {
    return failure("signature algorithm " + signer.signatureOID +
                   " does not go with the signer's key and digest");
  }
  const std::string bytes = signedBytes(signer, content);
  const DigestContext context(EVP_MD_CTX_new());
  const bool good =
      context && EVP_DigestVerifyInit(context.get(), nullptr, digest, nullptr, key) == 1 &&
      EVP_DigestVerify(context.get(),
                       reinterpret_cast<const unsigned char*>(signer.signature.data()),
                       signer.signature.size(),
                       reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) == 1;
  if (!good) {
    return failure(signer.attributes ? "the signature is not the signer's over these attributes"
                                     : "the signature is not the signer's over the content");
  }
  return {};
}

std::optional<Date> signingTimeIn(const std::vector<Attribute>& attributes) {
  const auto value = singleValue(attributes, kSigningTimeOID);
  if (!value) return std::nullopt;
  const auto time = decoded<ASN1_TIME, ASN1_TIME_free>(value->whole, d2i_ASN1_TIME);
  std::tm parts{};
  if (!time || ASN1_TIME_to_tm(time.get(), &parts) != 1) return std::nullopt;
  return Date(std::chrono::seconds(timegm(&parts)));
}

/// RFC 5652, 5.3: attributes may be missing only when the content is plain data. Signatures of the
/// platform's older tools have none.
Result<std::vector<Attribute>> checkedAttributes(const SignedData& data, const SignerInfo& info,
                                                 const EVP_MD* digest, Bytes content) {
  if (!info.attributes) {
    if (data.contentType == kDataOID) return std::vector<Attribute>();
    return failure("no signed attributes, and the content's type " + data.contentType +
                   " asks for them");
  }
  auto attributes = attributesIn(info.attributes->content);
  if (!attributes) return attributes;
  const auto type = singleValue(*attributes, kContentTypeOID);
  if (!type || DER::dotted(type->content) != data.contentType) {
    return failure("the contentType attribute does not name the content's type");
  }
  if (!hasDigest(*attributes, digest, content)) {
    return failure("the messageDigest attribute is not the content's digest");
  }
  return attributes;
}

Result<Signer> checkedSigner(const SignedData& data, const SignerInfo& info, Bytes content) {
  const auto certificate =
      std::find_if(data.certificates.begin(), data.certificates.end(),
                   [&](const Certificate& each) { return identifies(info.identifier, each); });
  if (certificate == data.certificates.end()) {
    return failure("the signer's certificate is not among the " +
                   std::to_string(data.certificates.size()) + " that it holds");
  }
  const EVP_MD* digest = digestOf(info.digestOID);
  if (!digest) return failure("unsupported digest " + info.digestOID);
  auto attributes = checkedAttributes(data, info, digest, content);
  if (!attributes) return attributes.error();
  if (const auto checked = checkSignature(info, digest, *certificate, content); !checked) {
    return checked.error();
  }
  auto chain = certificateChain(*certificate, data.certificates);
  if (!chain) return failure(chain.error().localizedDescription());
  const auto signingTime = signingTimeIn(*attributes);
  return Signer{*certificate, *std::move(chain), signingTime, *std::move(attributes)};
}

}  // namespace

Result<Signer> verifyDetached(Bytes message, Bytes content) {
  const auto definite = DER::definiteForm(message);
  if (!definite) return failure(definite.error().localizedDescription());
  const auto data = signedDataIn(definite->bytes());
  if (!data) return data.error();
  const auto info = signerInfoIn(data->signerInfo);
  if (!info) return info.error();
  return checkedSigner(*data, *info, content);
}

}  // namespace foundation::CMS

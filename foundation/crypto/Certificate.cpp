#include "foundation/crypto/Certificate.h"

#include <algorithm>

#include <openssl/x509v3.h>

#include "foundation/base/Text.h"
#include "foundation/crypto/OpenSSL.h"

namespace foundation {

namespace {

constexpr std::string_view kOIDEmailAddress = "1.2.840.113549.1.9.1";

std::string utf8Of(const ASN1_STRING* value) {
  unsigned char* converted = nullptr;
  const int size = ASN1_STRING_to_UTF8(&converted, value);
  if (size < 0) return lossyUTF8(bytesOf(value));
  std::string text =
      lossyUTF8({reinterpret_cast<std::byte*>(converted), static_cast<std::size_t>(size)});
  OPENSSL_free(converted);
  return text;
}

}  // namespace

Result<Certificate> Certificate::fromDER(Bytes der) {
  const OpenSSLErrorScope errors;
  const unsigned char* position = openSSLBytes(der);
  X509Handle native(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
  if (!native) {
    return makeError(kCertificateErrorDomain, kCertificateMalformed,
                     std::to_string(der.size()) +
                         " bytes are not an X.509 certificate: " + OpenSSLErrorScope::reason());
  }
  const auto left = der.size() - static_cast<std::size_t>(position - openSSLBytes(der));
  if (left != 0) {
    return makeError(kCertificateErrorDomain, kCertificateMalformed,
                     std::to_string(left) + " bytes follow the certificate");
  }
  Certificate certificate = adopt(native.release());
  certificate.der_ = Data::copyOf(der);
  return certificate;
}

Certificate Certificate::adopt(x509_st* native) {
  Certificate certificate;
  certificate.native_ = std::shared_ptr<X509>(native, X509_free);
  certificate.der_ = Data(encoded(native, i2d_X509));
  return certificate;
}

SHA1Digest Certificate::sha1() const { return foundation::sha1(der_.bytes()); }

std::vector<NamePart> Certificate::subject() const {
  const OpenSSLErrorScope errors;
  const X509_NAME* name = X509_get_subject_name(native());
  std::vector<NamePart> parts;
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    parts.push_back(
        {dotted(X509_NAME_ENTRY_get_object(entry)), utf8Of(X509_NAME_ENTRY_get_data(entry))});
  }
  return parts;
}

std::optional<std::string> Certificate::subjectValue(std::string_view oid) const {
  const auto parts = subject();
  const auto found = std::ranges::find(parts, oid, &NamePart::label);
  if (found == parts.end()) return std::nullopt;
  return found->value;
}

std::optional<std::string> Certificate::commonName() const {
  std::optional<std::string> last;
  for (const NamePart& part : subject()) {
    if (part.label == kOIDCommonName) last = part.value;
  }
  return last;
}

std::optional<std::string> Certificate::subjectSummary() const {
  if (auto name = commonName()) return name;
  for (const auto oid : {kOIDOrganizationalUnitName, kOIDOrganizationName, kOIDEmailAddress}) {
    if (auto value = subjectValue(oid)) return value;
  }
  return std::nullopt;
}

Date Certificate::notBefore() const {
  return dateOf(X509_get0_notBefore(native())).value_or(Date{});
}

Date Certificate::notAfter() const { return dateOf(X509_get0_notAfter(native())).value_or(Date{}); }

bool Certificate::isValidAt(Date date) const {
  const auto begin = dateOf(X509_get0_notBefore(native()));
  const auto end = dateOf(X509_get0_notAfter(native()));
  return begin && end && *begin <= date && date <= *end;
}

bool Certificate::isSelfIssued() const {
  return X509_NAME_cmp(X509_get_subject_name(native()), X509_get_issuer_name(native())) == 0;
}

bool Certificate::isIssuedBy(const Certificate& issuer) const {
  const OpenSSLErrorScope errors;
  if (X509_check_issued(issuer.native(), native()) != X509_V_OK) return false;
  EVP_PKEY* key = X509_get0_pubkey(issuer.native());
  return key && X509_verify(native(), key) == 1;
}

bool Certificate::mayIssueAbove(std::size_t issuers) const {
  const OpenSSLErrorScope errors;
  constexpr int kAuthority = 1;  // other values are old certificates without constraints
  if (X509_check_ca(native()) != kAuthority) return false;
  const long longest = X509_get_pathlen(native());
  return longest < 0 || issuers <= static_cast<std::size_t>(longest);
}

std::optional<Data> Certificate::extensionValue(std::string_view oid) const {
  const OpenSSLErrorScope errors;
  const ASN1ObjectHandle object(OBJ_txt2obj(std::string(oid).c_str(), 1));
  if (!object) return std::nullopt;
  const int index = X509_get_ext_by_OBJ(native(), object.get(), -1);
  if (index < 0) return std::nullopt;
  return Data::copyOf(bytesOf(X509_EXTENSION_get_data(X509_get_ext(native(), index))));
}

std::string Certificate::issuerText() const {
  const OpenSSLErrorScope errors;
  const BIOHandle out(BIO_new(BIO_s_mem()));
  constexpr unsigned long kStyle =
      XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (!out || X509_NAME_print_ex(out.get(), X509_get_issuer_name(native()), 0, kStyle) < 0) {
    return {};
  }
  char* text = nullptr;
  const long size = BIO_get_mem_data(out.get(), &text);
  return lossyUTF8(bytesOf({text, static_cast<std::size_t>(size)}));
}

PrivateKey PrivateKey::adopt(evp_pkey_st* native) {
  PrivateKey key;
  key.native_ = std::shared_ptr<EVP_PKEY>(native, EVP_PKEY_free);
  return key;
}

bool PrivateKey::belongsTo(const Certificate& certificate) const {
  const OpenSSLErrorScope errors;
  const EVP_PKEY* publicKey = X509_get0_pubkey(certificate.native());
  return publicKey && EVP_PKEY_eq(publicKey, native()) == 1;
}

}  // namespace foundation

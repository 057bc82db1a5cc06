#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "foundation/crypto/Digest.h"

struct x509_st;
struct evp_pkey_st;

namespace foundation {

/// One attribute of a distinguished name: dotted OID and UTF-8 value.
struct NamePart {
  std::string label;
  std::string value;
};

inline constexpr std::string_view kOIDCommonName = "2.5.4.3";
inline constexpr std::string_view kOIDOrganizationName = "2.5.4.10";
inline constexpr std::string_view kOIDOrganizationalUnitName = "2.5.4.11";

inline constexpr std::string_view kCertificateErrorDomain = "CertificateErrorDomain";
inline constexpr long kCertificateMalformed = -1;
inline constexpr long kCertificateWithoutChain = -2;
inline constexpr long kCertificateNotAdmitted = -3;

/// An X.509 certificate (RFC 5280). Copies share it; safe to read from several threads.
class Certificate {
 public:
  /// Fails unless the bytes are exactly one certificate.
  static Result<Certificate> fromDER(Bytes der);
  /// Takes ownership of a reference; `der` gives its encoding.
  static Certificate adopt(x509_st* native);

  [[nodiscard]] const Data& der() const { return der_; }
  [[nodiscard]] SHA1Digest sha1() const;
  /// In the certificate's order; ill-formed text becomes replacement characters.
  [[nodiscard]] std::vector<NamePart> subject() const;
  /// The first value with this OID.
  [[nodiscard]] std::optional<std::string> subjectValue(std::string_view oid) const;
  /// The last common name of the subject, as on the platform.
  [[nodiscard]] std::optional<std::string> commonName() const;
  /// The name to display: common name, else organisational unit, organisation or e-mail address.
  [[nodiscard]] std::optional<std::string> subjectSummary() const;
  /// The epoch for a malformed date, which `isValidAt` counts as never valid.
  [[nodiscard]] Date notBefore() const;
  [[nodiscard]] Date notAfter() const;
  [[nodiscard]] bool isValidAt(Date date) const;
  [[nodiscard]] bool isSelfIssued() const;
  /// Compares name and key identifier, and verifies the signature with the issuer's key.
  [[nodiscard]] bool isIssuedBy(const Certificate& issuer) const;
  /// True for an authority (RFC 5280: CA:TRUE, and keyCertSign if there is a key usage) whose path
  /// length permits this many issuers between it and the leaf.
  [[nodiscard]] bool mayIssueAbove(std::size_t issuers) const;
  /// The DER value of the extension with this dotted OID.
  [[nodiscard]] std::optional<Data> extensionValue(std::string_view oid) const;
  /// The issuer's whole name on one line, for messages.
  [[nodiscard]] std::string issuerText() const;

  /// For this folder only.
  [[nodiscard]] x509_st* native() const { return native_.get(); }

 private:
  std::shared_ptr<x509_st> native_;
  Data der_;
};

/// A private key, RSA or EC, which is never exported.
class PrivateKey {
 public:
  /// Takes ownership of a reference.
  static PrivateKey adopt(evp_pkey_st* native);
  [[nodiscard]] bool belongsTo(const Certificate& certificate) const;
  [[nodiscard]] evp_pkey_st* native() const { return native_.get(); }

 private:
  std::shared_ptr<evp_pkey_st> native_;
};

/// A certificate and its private key.
struct Identity {
  Certificate certificate;
  PrivateKey privateKey;
};

}  // namespace foundation

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

/// One part of a distinguished name: the attribute's OID in dotted form and its value as UTF-8.
struct NamePart {
  std::string label;
  std::string value;
};

inline constexpr std::string_view kOIDCommonName = "2.5.4.3";
inline constexpr std::string_view kOIDOrganizationName = "2.5.4.10";
inline constexpr std::string_view kOIDOrganizationalUnitName = "2.5.4.11";

/// An X.509 certificate (RFC 5280). Copies share it; safe to read from several threads.
class Certificate {
 public:
  /// Fails when the bytes are not exactly one DER certificate.
  static Result<Certificate> fromDER(Bytes der);
  /// Takes over a reference.
  static Certificate adopt(x509_st* native);

  [[nodiscard]] const Data& der() const { return der_; }
  [[nodiscard]] SHA1Digest sha1() const;
  /// Subject name parts in the certificate's own order; ill-formed text is made UTF-8 lossily.
  [[nodiscard]] std::vector<NamePart> subject() const;
  /// The first subject part with this OID; absent without one.
  [[nodiscard]] std::optional<std::string> subjectValue(std::string_view oid) const;
  /// The last common name of the subject, as the platform reads it; absent without one.
  [[nodiscard]] std::optional<std::string> commonName() const;
  /// What people are shown: the common name, else the organisational unit, the organisation, an
  /// e-mail address; absent when the subject has none of them.
  [[nodiscard]] std::optional<std::string> subjectSummary() const;
  [[nodiscard]] Date notBefore() const;
  [[nodiscard]] Date notAfter() const;
  [[nodiscard]] bool isValidAt(Date date) const;
  [[nodiscard]] bool isSelfIssued() const;
  /// True when `issuer`'s name and key identifier match and its key made this certificate's
  /// signature.
  [[nodiscard]] bool isIssuedBy(const Certificate& issuer) const;
  /// True for an authority (RFC 5280: CA:TRUE, and certSign where there is a key usage) whose path
  /// length allows so many issuers between itself and a leaf.
  [[nodiscard]] bool mayIssueAbove(std::size_t issuers) const;
  /// The DER value of the extension with this dotted OID; absent without one.
  [[nodiscard]] std::optional<Data> extensionValue(std::string_view oid) const;
  /// The issuer's name on one line, for messages.
  [[nodiscard]] std::string issuerText() const;

  /// For the other files of this folder only.
  [[nodiscard]] x509_st* native() const { return native_.get(); }

 private:
  std::shared_ptr<x509_st> native_;
  Data der_;
};

/// A private key, RSA or EC. It never leaves this object in readable form.
class PrivateKey {
 public:
  /// Takes over a reference.
  static PrivateKey adopt(evp_pkey_st* native);
  [[nodiscard]] bool belongsTo(const Certificate& certificate) const;
  [[nodiscard]] evp_pkey_st* native() const { return native_.get(); }

 private:
  std::shared_ptr<evp_pkey_st> native_;
};

/// A certificate together with its private key.
struct Identity {
  Certificate certificate;
  PrivateKey privateKey;
};

}  // namespace foundation

#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/Data.h"
#include "foundation/crypto/Certificate.h"

/// A signing certificate, and whether the user's keychain has its private key. Both are read once,
/// on creation; later changes of the keychain do not show.
class QVTDeveloperCertificate {
 public:
  /// Searches the default keychains for the private key.
  static std::shared_ptr<QVTDeveloperCertificate> initWithData(const foundation::Data& data);
  /// Empty unless `data` is a DER certificate. Searches only the keychain at `keychainPath`; one
  /// that cannot be opened has no keys.
  static std::shared_ptr<QVTDeveloperCertificate> initWithDataKeychainPath(
      const foundation::Data& data, std::optional<std::string> keychainPath);

  [[nodiscard]] const std::optional<std::string>& keychainPath() const { return keychainPath_; }
  [[nodiscard]] const std::optional<std::string>& commonName() const { return commonName_; }
  [[nodiscard]] const std::optional<std::string>& subjectSummary() const { return subjectSummary_; }
  [[nodiscard]] bool isPrivateKeyAvailable() const { return isPrivateKeyAvailable_; }
  /// The certificate's SHA-1 digest as 40 upper-case hex digits; absent without the private key.
  [[nodiscard]] const std::optional<std::string>& signingIdentity() const {
    return signingIdentity_;
  }
  /// The first of the subject's organizations.
  [[nodiscard]] const std::optional<std::string>& organizationName() const {
    return organizationName_;
  }
  [[nodiscard]] std::string description() const;

  // Each sets one field, or returns false if the certificate has no such value.
  bool copyCommonName(const foundation::Certificate& certificate);
  bool copySubjectSummary(const foundation::Certificate& certificate);
  /// Sets `signingIdentity` and `isPrivateKeyAvailable` if the keychain has the private key.
  bool copySigningIdentityCertificate(const std::optional<std::string>& keychainPath,
                                      const foundation::Certificate& certificate);
  bool copyOrganizationName(const foundation::Certificate& certificate);

  /// Two upper-case hex digits per byte.
  static std::string hexStringFromData(const foundation::Data& data);

 private:
  QVTDeveloperCertificate() = default;

  std::optional<std::string> keychainPath_;
  std::optional<std::string> commonName_;
  std::optional<std::string> subjectSummary_;
  bool isPrivateKeyAvailable_ = false;
  std::optional<std::string> signingIdentity_;
  std::optional<std::string> organizationName_;
};

/// The 20 bytes of the SHA-1 digest.
foundation::Data QVTIPASHA1DigestCreate(foundation::Bytes bytes);

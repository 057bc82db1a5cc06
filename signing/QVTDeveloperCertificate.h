#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/Data.h"
#include "foundation/crypto/Certificate.h"

/// One signing certificate, and whether the user's keychain holds its private key. Everything is
/// read once, by the constructor.
class QVTDeveloperCertificate {
 public:
  /// Searches the default keychains.
  static std::shared_ptr<QVTDeveloperCertificate> initWithData(const foundation::Data& data);
  /// `data` is a DER certificate, else the pointer is empty. Searches the keychain at
  /// `keychainPath` alone; one that cannot be opened holds no key.
  static std::shared_ptr<QVTDeveloperCertificate> initWithDataKeychainPath(
      const foundation::Data& data, std::optional<std::string> keychainPath);

  [[nodiscard]] const std::optional<std::string>& keychainPath() const { return keychainPath_; }
  [[nodiscard]] const std::optional<std::string>& commonName() const { return commonName_; }
  [[nodiscard]] const std::optional<std::string>& subjectSummary() const { return subjectSummary_; }
  [[nodiscard]] bool isPrivateKeyAvailable() const { return isPrivateKeyAvailable_; }
  /// The certificate's SHA-1 digest in 40 upper-case digits; absent without its private key.
  [[nodiscard]] const std::optional<std::string>& signingIdentity() const {
    return signingIdentity_;
  }
  /// The first organisation of the subject.
  [[nodiscard]] const std::optional<std::string>& organizationName() const {
    return organizationName_;
  }
  [[nodiscard]] std::string description() const;

  // Each fills one field and answers whether it did.
  bool copyCommonName(const foundation::Certificate& certificate);
  bool copySubjectSummary(const foundation::Certificate& certificate);
  /// Fills `signingIdentity` and `isPrivateKeyAvailable`.
  bool copySigningIdentityCertificate(const std::optional<std::string>& keychainPath,
                                      const foundation::Certificate& certificate);
  bool copyOrganizationName(const foundation::Certificate& certificate);

  /// Two upper-case digits for each byte, in order.
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

/// The SHA-1 digest of the bytes: exactly 20 bytes.
foundation::Data QVTIPASHA1DigestCreate(foundation::Bytes bytes);

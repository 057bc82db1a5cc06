#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "package/ProvisioningProfile.h"
#include "signing/QVTDeveloperCertificate.h"

inline constexpr std::string_view QVTProvisioningProfileErrorDomain =
    "QVTProvisioningProfileErrorDomain";

/// A provisioning profile: which devices may run which app, signed with which certificates. A value
/// that is missing or of another type is absent. Immutable, so threads may share it.
class QVTProvisioningProfile {
 public:
  using Certificates = std::vector<std::shared_ptr<QVTDeveloperCertificate>>;

  /// Searches the default keychains for private keys.
  static std::shared_ptr<QVTProvisioningProfile> initWithPath(
      const std::optional<std::string>& path);
  /// Empty if `dictionaryForMobileProvisionAtPath` is absent, or the list of identifier prefixes
  /// exists but is empty.
  static std::shared_ptr<QVTProvisioningProfile> initWithPathKeychainPath(
      const std::optional<std::string>& path, const std::optional<std::string>& keychainPath);

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The file's contents, read once.
  [[nodiscard]] const package::ProvisioningProfile& file() const { return file_; }
  /// In the file's order, without entries that are not certificates.
  [[nodiscard]] const Certificates& developerCertificates() const { return developerCertificates_; }
  [[nodiscard]] const std::optional<std::string>& bundleIdentifier() const {
    return bundleIdentifier_;
  }
  [[nodiscard]] const std::optional<std::string>& bundleIdentifierWithAppIdPrefix() const {
    return bundleIdentifierWithAppIdPrefix_;
  }
  [[nodiscard]] bool getTaskAllow() const { return getTaskAllow_; }
  /// Whether it is an iOS profile, by its file name.
  [[nodiscard]] bool mobile() const { return mobile_; }
  [[nodiscard]] const std::optional<foundation::Date>& expirationDate() const {
    return expirationDate_;
  }
  [[nodiscard]] const std::optional<std::string>& name() const { return name_; }
  [[nodiscard]] const std::optional<std::string>& UUID() const { return uuid_; }
  [[nodiscard]] const std::set<std::string>& provisionedDevices() const {
    return provisionedDevices_;
  }
  [[nodiscard]] const std::optional<std::string>& applicationIdentifierPrefix() const {
    return applicationIdentifierPrefix_;
  }
  [[nodiscard]] const std::string& applicationIdentifierPrefixWildCard() const {
    return applicationIdentifierPrefixWildCard_;
  }
  [[nodiscard]] bool provisionsAllDevices() const { return provisionsAllDevices_; }
  [[nodiscard]] bool hasWildcardsInBundleIdentifier() const;
  [[nodiscard]] const std::optional<foundation::Date>& creationDate() const {
    return creationDate_;
  }

  /// The property list that `package::ProvisioningProfile` finds; absent if there is none. The
  /// system log says why a file or a list cannot be read.
  static std::optional<foundation::Dictionary> dictionaryForMobileProvisionAtPath(
      const std::string& path);
  /// Skips entries that are not certificates.
  static Certificates parseDeveloperCertificatesKeychainPath(
      const foundation::Array& certificates, const std::optional<std::string>& keychainPath);

  /// The first certificate with exactly this signing identity; empty if there is none.
  [[nodiscard]] std::shared_ptr<QVTDeveloperCertificate> certForCodeSignIdentity(
      const std::optional<std::string>& identity) const;
  /// The first certificate with a private key, else `noPrivateKeyError`.
  std::shared_ptr<QVTDeveloperCertificate> certWithPrivateKeyAvailableOrError(
      foundation::ErrorSlot error) const;
  [[nodiscard]] std::shared_ptr<QVTDeveloperCertificate> certWithPrivateKeyAvailable() const;
  /// Code -1; "Details" has every certificate's common name, one per line.
  [[nodiscard]] foundation::Error noPrivateKeyError() const;

  /// Compares component by component; "*" matches any. Further components are ignored, so a profile
  /// for com.example also matches com.example.app.
  [[nodiscard]] bool matchesBundleIdentifier(
      const std::optional<std::string>& bundleIdentifier) const;
  /// The newest installed profile with the same name, kind and identifier that was made after this
  /// one; empty if there is none.
  [[nodiscard]] std::shared_ptr<QVTProvisioningProfile> findNewerMatchForProvisioningProfile()
      const;
  /// The same among these, for callers that ask about many profiles.
  [[nodiscard]] std::shared_ptr<QVTProvisioningProfile> newestMatchAmong(
      std::vector<std::shared_ptr<QVTProvisioningProfile>> profiles) const;

  /// Where Xcode installs profiles, with "~" expanded; the folder need not exist.
  static std::vector<std::string> profileDirectories();
  /// All that can be read, in no particular order. Each call reads the files again.
  static std::vector<std::shared_ptr<QVTProvisioningProfile>> installedProfiles();
  /// The installed profile that is named after its UUID; empty if there is none or it is
  /// unreadable.
  static std::shared_ptr<QVTProvisioningProfile> mobileProfileWithUUID(
      const std::optional<std::string>& uuid);

  /// A copy without the UUID.
  [[nodiscard]] std::shared_ptr<QVTProvisioningProfile> copyWithZone() const;
  [[nodiscard]] std::string description() const;

 private:
  QVTProvisioningProfile() = default;
  QVTProvisioningProfile(const QVTProvisioningProfile&) = default;
  bool readPrefix();
  void readEntitlements();
  void readDevices();
  [[nodiscard]] bool isSupersededBy(const QVTProvisioningProfile& other) const;

  std::string path_;
  package::ProvisioningProfile file_;
  Certificates developerCertificates_;
  std::optional<std::string> bundleIdentifier_;
  std::optional<std::string> bundleIdentifierWithAppIdPrefix_;
  bool getTaskAllow_ = false;
  bool mobile_ = false;
  std::optional<foundation::Date> expirationDate_;
  std::optional<std::string> name_;
  std::optional<std::string> uuid_;
  std::set<std::string> provisionedDevices_;
  std::optional<std::string> applicationIdentifierPrefix_;
  std::string applicationIdentifierPrefixWildCard_;
  bool provisionsAllDevices_ = false;
  std::optional<foundation::Date> creationDate_;
};

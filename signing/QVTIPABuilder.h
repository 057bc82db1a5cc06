#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Result.h"
#include "signing/QVTCodeSigner.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTProvisioningProfile.h"

inline constexpr std::string_view QVTIPABuilderErrorDomain = "QVTIPABuilderErrorDomain";

/// Packs an app into an .ipa, re-signed and marked for distribution.
class QVTIPABuilder {
 public:
  /// Which step of packaging failed. Numbers -3 and -4 are not used.
  enum ErrorCode : long {
    kPreparingFolders = -1,
    kCopyingApp = -2,
    kSigningWithoutInput = -5,
    kSigning = -6,
    kSigningVerification = -7,
    kZipping = -8,
    kMarkingInfoPlist = -9,
    kExportingEntitlements = -10,
    kVerifying = -11,
    kFindingTools = -12,
    kRepairingEntitlements = -13
  };

  /// Empty when no signer can be made for the certificate.
  static std::shared_ptr<QVTIPABuilder> initWithProvisioningProfileDeveloperCertificate(
      std::shared_ptr<QVTProvisioningProfile> profile,
      std::shared_ptr<QVTDeveloperCertificate> developerCertificate);

  [[nodiscard]] const std::shared_ptr<QVTProvisioningProfile>& profile() const { return profile_; }
  [[nodiscard]] const std::shared_ptr<QVTCodeSigner>& signer() const { return signer_; }
  /// A new folder name on every call; nothing is made there. Throws `foundation::Exception` when
  /// the user has no temporary folder.
  [[nodiscard]] std::string workDirectory() const;

  /// Copies the app at `source` into a new work folder, signs it there unless it bears the
  /// distribution mark, and zips it to `destination`; an archive that is there is added to, and a
  /// relative path is taken from the work folder. The error has an `ErrorCode`, the work folder as
  /// "SourcePath", and the failing step's own error as "UnderlyingError". The work folder is
  /// removed after success only.
  bool packageSourceToDestinationPath(const std::string& source, const std::string& destination,
                                      foundation::ErrorSlot error = nullptr) const;

  /// Takes the right to beta reports out of an entitlements file. False when the file holds no
  /// dictionary or cannot be written.
  bool repairEntitlements(const std::string& path) const;
  [[nodiscard]] bool infoPlistAlreadyHasDistribution(const std::string& appPath) const;
  /// False when there is no dictionary in the app's Info.plist or it cannot be written.
  bool markInfoPlistForDistributionAtAppPath(const std::string& appPath) const;

 private:
  QVTIPABuilder() = default;
  [[nodiscard]] foundation::Result<> package(const std::string& source,
                                             const std::string& destination,
                                             const std::string& workFolder) const;
  [[nodiscard]] foundation::Result<> resign(const std::string& app,
                                            const std::string& payload) const;
  [[nodiscard]] foundation::Result<> signApp(const std::string& app) const;
  [[nodiscard]] foundation::Result<> zip(const std::string& destination,
                                         const std::string& workFolder) const;

  std::shared_ptr<QVTProvisioningProfile> profile_;
  std::shared_ptr<QVTCodeSigner> signer_;
};

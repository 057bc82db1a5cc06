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

/// Re-signs an app, marks it for distribution and packs it into an .ipa.
class QVTIPABuilder {
 public:
  /// The step that failed. -3 and -4 are not used.
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

  /// Empty if there is no `QVTCodeSigner` for the certificate.
  static std::shared_ptr<QVTIPABuilder> initWithProvisioningProfileDeveloperCertificate(
      std::shared_ptr<QVTProvisioningProfile> profile,
      std::shared_ptr<QVTDeveloperCertificate> developerCertificate);

  [[nodiscard]] const std::shared_ptr<QVTProvisioningProfile>& profile() const { return profile_; }
  [[nodiscard]] const std::shared_ptr<QVTCodeSigner>& signer() const { return signer_; }
  /// A new path on every call; no folder is made. Throws `foundation::Exception` when the temporary
  /// folder cannot be used.
  [[nodiscard]] std::string workDirectory() const;

  /// Copies the app into a new work folder, signs it there unless it is already marked, and zips
  /// it. An existing archive at `destination` is added to; a relative path starts at the work
  /// folder. The error has an `ErrorCode`, the work folder as "SourcePath" and the error of the
  /// failed step as "UnderlyingError", or `QVTTask::descriptionOfRun` for `zip`. The work folder is
  /// removed only on success. Throws what `workDirectory` and `QVTTask` throw.
  bool packageSourceToDestinationPath(const std::string& source, const std::string& destination,
                                      foundation::ErrorSlot error = nullptr) const;

  /// Removes the entitlement to beta reports from the file. False if the file is not a dictionary
  /// or cannot be written.
  bool repairEntitlements(const std::string& path) const;
  [[nodiscard]] bool infoPlistAlreadyHasDistribution(const std::string& appPath) const;
  /// False if the app's Info.plist is not a dictionary, leads out of the app, or cannot be written.
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

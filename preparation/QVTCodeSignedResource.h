#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "foundation/app/Bundle.h"
#include "foundation/base/Value.h"

/// A signed app: where it is and what its Info.plist says. Every property may be absent. Not
/// thread-safe.
class QVTCodeSignedResource {
 public:
  QVTCodeSignedResource() = default;
  virtual ~QVTCodeSignedResource() = default;

  /// Sets everything but the creation date from the app's folder, with the defaults of
  /// `QVTInfoPlist`. The bundle is empty if there is no such folder. Throws what
  /// `foundation::Bundle::bundleWithPath` throws.
  void readApp(const std::string& path);

  /// The app's folder.
  [[nodiscard]] const std::optional<std::string>& path() const { return path_; }
  [[nodiscard]] const std::optional<std::string>& bundleIdentifier() const {
    return bundleIdentifier_;
  }
  [[nodiscard]] const std::optional<std::string>& displayVersion() const { return displayVersion_; }
  [[nodiscard]] const std::optional<std::string>& buildVersion() const { return buildVersion_; }
  [[nodiscard]] const std::optional<foundation::Date>& creationDate() const {
    return creationDate_;
  }
  /// Where the embedded profile belongs, whether or not it exists.
  [[nodiscard]] const std::optional<std::string>& provisioningProfilePath() const {
    return provisioningProfilePath_;
  }
  /// The same, but absent if there is no profile, or only a link out of the app, which would put a
  /// foreign file into it; the system log names that link.
  [[nodiscard]] std::optional<std::string> usableProvisioningProfilePath() const;
  [[nodiscard]] const std::shared_ptr<foundation::Bundle>& bundle() const { return bundle_; }

  void setPath(std::optional<std::string> path) { path_ = std::move(path); }
  void setBundleIdentifier(std::optional<std::string> identifier) {
    bundleIdentifier_ = std::move(identifier);
  }
  void setDisplayVersion(std::optional<std::string> version) {
    displayVersion_ = std::move(version);
  }
  void setBuildVersion(std::optional<std::string> version) { buildVersion_ = std::move(version); }
  void setCreationDate(std::optional<foundation::Date> date) { creationDate_ = date; }
  void setProvisioningProfilePath(std::optional<std::string> path) {
    provisioningProfilePath_ = std::move(path);
  }
  void setBundle(std::shared_ptr<foundation::Bundle> bundle) { bundle_ = std::move(bundle); }

  [[nodiscard]] const std::optional<foundation::Date>& displayDate() const { return creationDate_; }
  /// "<CLASS: ADDRESS IDENTIFIER DISPLAY-VERSION BUILD-VERSION CREATION-DATE>".
  [[nodiscard]] std::string description() const;
  /// Compares creation date, path and bundle identifier. Absent values are never equal, so a record
  /// without a creation date does not even equal itself.
  [[nodiscard]] bool isEqual(const QVTCodeSignedResource& other) const;

 protected:
  /// The class's name for `description`.
  [[nodiscard]] virtual std::string_view className() const { return "QVTCodeSignedResource"; }

 private:
  std::optional<std::string> path_;
  std::optional<std::string> bundleIdentifier_;
  std::optional<std::string> displayVersion_;
  std::optional<std::string> buildVersion_;
  std::optional<foundation::Date> creationDate_;
  std::optional<std::string> provisioningProfilePath_;
  std::shared_ptr<foundation::Bundle> bundle_;
};

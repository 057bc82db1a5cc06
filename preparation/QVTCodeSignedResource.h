#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "foundation/app/Bundle.h"
#include "foundation/base/Value.h"

/// A signed app as it is passed around: where it is and what its Info.plist says. Every property
/// may be absent. Not for several threads at once.
class QVTCodeSignedResource {
 public:
  QVTCodeSignedResource() = default;
  virtual ~QVTCodeSignedResource() = default;

  /// Fills in all but the creation date from the app in this folder. What its Info.plist does not
  /// say has the defaults of `QVTInfoPlist`, and the bundle is empty if it is not a folder. Throws
  /// as `foundation::Bundle::bundleWithPath` does.
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
  /// Where the embedded profile is, whether or not there is one.
  [[nodiscard]] const std::optional<std::string>& provisioningProfilePath() const {
    return provisioningProfilePath_;
  }
  /// The same, absent when no profile is there or a link leads out of the app, of which the system
  /// log tells: it would put somebody else's file into the app.
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
  /// Same creation date, path and bundle identifier. Absent values are never the same, so a record
  /// without a creation date is not equal even to itself.
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

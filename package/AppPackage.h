#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "foundation/app/Bundle.h"
#include "package/ProvisioningProfile.h"

namespace package {

/// An app's folder and its parts, laid out as on iOS. A part behind a link that leads out of the
/// folder is not the app's and is never read. Nothing is read before it is asked for.
class AppPackage {
 public:
  explicit AppPackage(std::string path) : path_(std::move(path)) {}

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Where these files belong, whether or not they exist.
  [[nodiscard]] std::string infoPlistPath() const;
  [[nodiscard]] std::string profilePath() const;

  /// The folder as a bundle, which finds the executable; see `Bundle::bundleWithPath`.
  [[nodiscard]] std::shared_ptr<foundation::Bundle> bundle() const;
  /// Absent when Info.plist is missing, unreadable, not a dictionary, or a link out of the app,
  /// which the system log names.
  [[nodiscard]] std::optional<foundation::Dictionary> infoDictionary() const;
  /// "embedded.mobileprovision", else "embedded.provisionprofile"; absent when there is neither.
  /// Fails with the path when it cannot be read or is a link out of the app.
  [[nodiscard]] foundation::Result<std::optional<ProvisioningProfile>> profile() const;

 private:
  std::string path_;
};

}  // namespace package

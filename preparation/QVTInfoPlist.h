#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

/// Used when the build version is missing, empty or not a string.
inline constexpr std::string_view QVTDefaultBuildVersionString = "0";
/// Used for a display version likewise.
inline constexpr std::string_view QVTDefaultDisplayVersionString = "0.0";

/// A bundle's Info.plist and the three values that identify a release. A missing or malformed value
/// gives its default and a line in the system log, so it never stops a release.
class QVTInfoPlist {
 public:
  static std::shared_ptr<QVTInfoPlist> initWithDictionary(foundation::Dictionary info);
  /// A file that cannot be read gives an object with an empty dictionary.
  static std::shared_ptr<QVTInfoPlist> initWithContentsOfFile(std::string_view path);
  /// Reads the one at the top of the folder, as in iOS apps, unless it is a link out of it.
  static std::shared_ptr<QVTInfoPlist> initWithAppDirectory(std::string_view path);
  /// "Resources/Info.plist", else "Info.plist"; empty when neither file exists.
  static std::shared_ptr<QVTInfoPlist> initWithFrameworkDirectory(std::string_view path);

  [[nodiscard]] const foundation::Dictionary& info() const { return info_; }
  void setInfo(foundation::Dictionary info) { info_ = std::move(info); }

  /// "CFBundleIdentifier"; empty if it is not a string.
  [[nodiscard]] std::string bundleIdentifier() const;
  [[nodiscard]] std::string buildVersion() const;
  [[nodiscard]] std::string displayVersion() const;

  /// The string as is, or the default if it is empty or another type. Null: a missing value.
  static std::string guaranteeBuildVersion(const foundation::Value* version);
  static std::string guaranteeDisplayVersion(const foundation::Value* version);

 private:
  explicit QVTInfoPlist(foundation::Dictionary info) : info_(std::move(info)) {}
  foundation::Dictionary info_;
};

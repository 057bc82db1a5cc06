#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

/// What stands for a build version that is missing, empty or no text.
inline constexpr std::string_view QVTDefaultBuildVersionString = "0";
/// The same for a display version.
inline constexpr std::string_view QVTDefaultDisplayVersionString = "0.0";

/// A bundle's Info.plist and the three values that name a release. They always have an answer: a
/// malformed plist gives a default and a line in the system log, and never stops a release.
class QVTInfoPlist {
 public:
  static std::shared_ptr<QVTInfoPlist> initWithDictionary(foundation::Dictionary info);
  /// A file that cannot be read gives an object with an empty dictionary.
  static std::shared_ptr<QVTInfoPlist> initWithContentsOfFile(std::string_view path);
  /// As iOS apps have it, at the top of the folder; a link that leads out of it is not read.
  static std::shared_ptr<QVTInfoPlist> initWithAppDirectory(std::string_view path);
  /// "Resources/Info.plist", else "Info.plist"; empty when neither file exists.
  static std::shared_ptr<QVTInfoPlist> initWithFrameworkDirectory(std::string_view path);

  [[nodiscard]] const foundation::Dictionary& info() const { return info_; }
  void setInfo(foundation::Dictionary info) { info_ = std::move(info); }

  /// "CFBundleIdentifier"; empty text when it is no string.
  [[nodiscard]] std::string bundleIdentifier() const;
  [[nodiscard]] std::string buildVersion() const;
  [[nodiscard]] std::string displayVersion() const;

  /// The text itself, untrimmed, or the default for anything but text with content. Null is a
  /// missing value.
  static std::string guaranteeBuildVersion(const foundation::Value* version);
  static std::string guaranteeDisplayVersion(const foundation::Value* version);

 private:
  explicit QVTInfoPlist(foundation::Dictionary info) : info_(std::move(info)) {}
  foundation::Dictionary info_;
};

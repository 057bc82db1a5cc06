#pragma once

#include <optional>
#include <string>
#include <string_view>

/// SDK platform names: values of the build setting `ENVPlatformNameKey`.
inline constexpr std::string_view QVTPlatformNameIPhoneOS = "iphoneos";
inline constexpr std::string_view QVTPlatformNameOSX = "macosx";
inline constexpr std::string_view QVTPlatformNameTVOS = "appletvos";
inline constexpr std::string_view QVTPlatformNameTVSimulator = "appletvsimulator";
inline constexpr std::string_view QVTPlatformNameWatchOS = "watchos";
inline constexpr std::string_view QVTPlatformNameWatchSimulator = "watchsimulator";
inline constexpr std::string_view QVTPlatformNameiOSSimulator = "iphonesimulator";

/// Platform identifiers, used in paths of the web services.
inline constexpr std::string_view QVTSDKKitPlatformIdentifierIOS = "ios";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierMac = "mac";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierTVOS = "tvos";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierWatch = "watch";

/// Display names.
inline constexpr std::string_view QVTPlatformDisplayNameIOS = "iOS";
inline constexpr std::string_view QVTPlatformDisplayNameOSX = "OS X";
inline constexpr std::string_view QVTPlatformDisplayNameTVOS = "tvOS";
inline constexpr std::string_view QVTPlatformDisplayNameWatchOS = "watchOS";

inline constexpr std::string_view ENVPlatformNameKey = "PLATFORM_NAME";

enum class QVTPlatformType : int { unknown = 0, iOS = 1, mac = 2, tvOS = 3, watchOS = 4 };

/// Translates between the names of a platform. Lookups are exact and case-sensitive. Thread-safe.
class QVTPlatform {
 public:
  /// The identifier of an SDK platform; a simulator has its device's. Absent for unknown names.
  static std::optional<std::string> translatePlatform(const std::optional<std::string>& platform);
  /// Likewise.
  static std::optional<std::string> displayStringForPlatform(
      const std::optional<std::string>& platform);

  /// `unknown` unless it is one of the identifiers above.
  static QVTPlatformType platformFromString(const std::optional<std::string>& identifier);
  /// The identifier; absent for `unknown` and any other number.
  static std::optional<std::string> stringFromPlatform(QVTPlatformType platform);
  static std::optional<std::string> displayStringForPlatformType(QVTPlatformType platform);
};

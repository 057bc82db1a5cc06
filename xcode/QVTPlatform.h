#pragma once

#include <optional>
#include <string>
#include <string_view>

/// SDK platform names, as the build setting `ENVPlatformNameKey` has them.
inline constexpr std::string_view QVTPlatformNameIPhoneOS = "iphoneos";
inline constexpr std::string_view QVTPlatformNameOSX = "macosx";
inline constexpr std::string_view QVTPlatformNameTVOS = "appletvos";
inline constexpr std::string_view QVTPlatformNameTVSimulator = "appletvsimulator";
inline constexpr std::string_view QVTPlatformNameWatchOS = "watchos";
inline constexpr std::string_view QVTPlatformNameWatchSimulator = "watchsimulator";
inline constexpr std::string_view QVTPlatformNameiOSSimulator = "iphonesimulator";

/// Platform identifiers, as the web services have them in their paths.
inline constexpr std::string_view QVTSDKKitPlatformIdentifierIOS = "ios";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierMac = "mac";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierTVOS = "tvos";
inline constexpr std::string_view QVTSDKKitPlatformIdentifierWatch = "watch";

/// Names that people are shown.
inline constexpr std::string_view QVTPlatformDisplayNameIOS = "iOS";
inline constexpr std::string_view QVTPlatformDisplayNameOSX = "OS X";
inline constexpr std::string_view QVTPlatformDisplayNameTVOS = "tvOS";
inline constexpr std::string_view QVTPlatformDisplayNameWatchOS = "watchOS";

inline constexpr std::string_view ENVPlatformNameKey = "PLATFORM_NAME";

enum class QVTPlatformType : int { unknown = 0, iOS = 1, mac = 2, tvOS = 3, watchOS = 4 };

/// Translates between the names of a platform. Every look-up is exact: a name in another letter
/// case or with a space behind it is unknown. Safe from any thread.
class QVTPlatform {
 public:
  /// The identifier of an SDK platform; a simulator has that of its device.
  static std::optional<std::string> translatePlatform(const std::optional<std::string>& platform);
  /// The display name of an SDK platform.
  static std::optional<std::string> displayStringForPlatform(
      const std::optional<std::string>& platform);

  /// `unknown` for what is no identifier, and for an absent one.
  static QVTPlatformType platformFromString(const std::optional<std::string>& identifier);
  /// The identifier; absent for a number that stands for no platform.
  static std::optional<std::string> stringFromPlatform(QVTPlatformType platform);
  static std::optional<std::string> displayStringForPlatformType(QVTPlatformType platform);
};

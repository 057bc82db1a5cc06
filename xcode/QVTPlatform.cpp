#include "xcode/QVTPlatform.h"

#include <algorithm>
#include <array>

namespace {

struct Platform {
  QVTPlatformType type = QVTPlatformType::unknown;
  std::string_view identifier;
  std::string_view displayName;
  std::string_view deviceSDK;
  std::string_view simulatorSDK;
};

constexpr std::array<Platform, 4> kPlatforms{{
    {QVTPlatformType::iOS, QVTSDKKitPlatformIdentifierIOS, QVTPlatformDisplayNameIOS,
     QVTPlatformNameIPhoneOS, QVTPlatformNameiOSSimulator},
    {QVTPlatformType::mac, QVTSDKKitPlatformIdentifierMac, QVTPlatformDisplayNameOSX,
     QVTPlatformNameOSX, QVTPlatformNameOSX},
    {QVTPlatformType::tvOS, QVTSDKKitPlatformIdentifierTVOS, QVTPlatformDisplayNameTVOS,
     QVTPlatformNameTVOS, QVTPlatformNameTVSimulator},
    {QVTPlatformType::watchOS, QVTSDKKitPlatformIdentifierWatch, QVTPlatformDisplayNameWatchOS,
     QVTPlatformNameWatchOS, QVTPlatformNameWatchSimulator},
}};

template <class Condition>
const Platform* platformWhere(Condition condition) {
  const auto platform = std::ranges::find_if(kPlatforms, condition);
  return platform == kPlatforms.end() ? nullptr : &*platform;
}

const Platform* platformOfSDK(const std::optional<std::string>& name) {
  return platformWhere(
      [&](const Platform& row) { return name == row.deviceSDK || name == row.simulatorSDK; });
}

const Platform* platformOfType(QVTPlatformType type) {
  return platformWhere([type](const Platform& row) { return row.type == type; });
}

std::optional<std::string> nameIn(const Platform* platform, std::string_view Platform::*name) {
  return platform ? std::optional<std::string>(platform->*name) : std::nullopt;
}

}  // namespace

std::optional<std::string> QVTPlatform::translatePlatform(
    const std::optional<std::string>& platform) {
  return nameIn(platformOfSDK(platform), &Platform::identifier);
}

std::optional<std::string> QVTPlatform::displayStringForPlatform(
    const std::optional<std::string>& platform) {
  return nameIn(platformOfSDK(platform), &Platform::displayName);
}

QVTPlatformType QVTPlatform::platformFromString(const std::optional<std::string>& identifier) {
  const Platform* const platform =
      platformWhere([&](const Platform& row) { return identifier == row.identifier; });
  return platform ? platform->type : QVTPlatformType::unknown;
}

std::optional<std::string> QVTPlatform::stringFromPlatform(QVTPlatformType platform) {
  return nameIn(platformOfType(platform), &Platform::identifier);
}

std::optional<std::string> QVTPlatform::displayStringForPlatformType(QVTPlatformType platform) {
  return nameIn(platformOfType(platform), &Platform::displayName);
}

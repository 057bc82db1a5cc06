#include "xcode/QVTPlatform.h"

#include <map>

namespace {

using Names = std::map<std::string_view, std::string_view>;

const Names& identifiers() {
  static const Names table{
      {QVTPlatformNameIPhoneOS, QVTSDKKitPlatformIdentifierIOS},
      {QVTPlatformNameOSX, QVTSDKKitPlatformIdentifierMac},
      {QVTPlatformNameTVOS, QVTSDKKitPlatformIdentifierTVOS},
      {QVTPlatformNameTVSimulator, QVTSDKKitPlatformIdentifierTVOS},
      {QVTPlatformNameWatchOS, QVTSDKKitPlatformIdentifierWatch},
      {QVTPlatformNameWatchSimulator, QVTSDKKitPlatformIdentifierWatch},
      {QVTPlatformNameiOSSimulator, QVTSDKKitPlatformIdentifierIOS},
  };
  return table;
}

const Names& displayNames() {
  static const Names table{
      {QVTPlatformNameIPhoneOS, QVTPlatformDisplayNameIOS},
      {QVTPlatformNameOSX, QVTPlatformDisplayNameOSX},
      {QVTPlatformNameTVOS, QVTPlatformDisplayNameTVOS},
      {QVTPlatformNameTVSimulator, QVTPlatformDisplayNameTVOS},
      {QVTPlatformNameWatchOS, QVTPlatformDisplayNameWatchOS},
      {QVTPlatformNameWatchSimulator, QVTPlatformDisplayNameWatchOS},
      {QVTPlatformNameiOSSimulator, QVTPlatformDisplayNameIOS},
  };
  return table;
}

std::optional<std::string> lookUp(const Names& table, const std::optional<std::string>& name) {
  const auto row = name ? table.find(*name) : table.end();
  return row == table.end() ? std::nullopt : std::optional<std::string>(row->second);
}

}  // namespace

std::optional<std::string> QVTPlatform::translatePlatform(
    const std::optional<std::string>& platform) {
  return lookUp(identifiers(), platform);
}

std::optional<std::string> QVTPlatform::displayStringForPlatform(
    const std::optional<std::string>& platform) {
  return lookUp(displayNames(), platform);
}

QVTPlatformType QVTPlatform::platformFromString(const std::optional<std::string>& identifier) {
  if (identifier == QVTSDKKitPlatformIdentifierIOS) return QVTPlatformType::iOS;
  if (identifier == QVTSDKKitPlatformIdentifierMac) return QVTPlatformType::mac;
  if (identifier == QVTSDKKitPlatformIdentifierTVOS) return QVTPlatformType::tvOS;
  if (identifier == QVTSDKKitPlatformIdentifierWatch) return QVTPlatformType::watchOS;
  return QVTPlatformType::unknown;
}

std::optional<std::string> QVTPlatform::stringFromPlatform(QVTPlatformType platform) {
  switch (platform) {
    case QVTPlatformType::iOS:
      return std::string(QVTSDKKitPlatformIdentifierIOS);
    case QVTPlatformType::mac:
      return std::string(QVTSDKKitPlatformIdentifierMac);
    case QVTPlatformType::tvOS:
      return std::string(QVTSDKKitPlatformIdentifierTVOS);
    case QVTPlatformType::watchOS:
      return std::string(QVTSDKKitPlatformIdentifierWatch);
    case QVTPlatformType::unknown:
      break;
  }
  return std::nullopt;
}

std::optional<std::string> QVTPlatform::displayStringForPlatformType(QVTPlatformType platform) {
  switch (platform) {
    case QVTPlatformType::iOS:
      return std::string(QVTPlatformDisplayNameIOS);
    case QVTPlatformType::mac:
      return std::string(QVTPlatformDisplayNameOSX);
    case QVTPlatformType::tvOS:
      return std::string(QVTPlatformDisplayNameTVOS);
    case QVTPlatformType::watchOS:
      return std::string(QVTPlatformDisplayNameWatchOS);
    case QVTPlatformType::unknown:
      break;
  }
  return std::nullopt;
}

#include "preparation/QVTIPA.h"

#include <filesystem>

#include "console/QVTCLUtilLog.h"
#include "foundation/Path.h"
#include "foundation/SystemLog.h"
#include "foundation/Text.h"
#include "foundation/URL.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/QVTInfoPlist.h"

namespace {

/// An archive may hold links, and what is behind one is not the archive's: signing would change it,
/// and the end of the run remove it.
bool isLink(const std::string& path) {
  std::error_code problem;
  if (!std::filesystem::is_symlink(path, problem)) return false;
  foundation::systemLog("%@ is a link, which is not followed", path);
  return true;
}

/// The app folder inside the inflated archive; absent when there is none.
std::optional<std::string> appPathInFolder(const std::string& inflated) {
  const std::string payload = inflated + "Payload";
  std::optional<foundation::Error> error;
  const auto names = QVTFileSystemUtils::findPathsToAppsInDirectory(payload, &error);
  if (error) foundation::systemLog("%@", error->localizedDescription());
  if (!names || names->empty() || isLink(payload)) return std::nullopt;
  const std::string app = payload + "/" + names->front();
  return isLink(app) ? std::nullopt : std::optional<std::string>(app);
}

/// The standard escaping leaves "?" alone, which would end the URL's path.
std::optional<foundation::URL> urlForPath(const std::string& path) {
  return foundation::URL::withString(
      foundation::percentEscapedKeepingPercent(foundation::percentEscaped(path), "?"));
}

}  // namespace

std::shared_ptr<QVTIPA> QVTIPA::initWithPath(const std::string& path) {
  std::optional<foundation::Error> error;
  const auto inflated = QVTFileSystemUtils::inflateToTemporaryPathArchive(path, &error);
  if (!inflated) {
    QVTCLUtilLog("Unable to inflate IPA to temporary path: %@", error);
    return nullptr;
  }
  const auto appPath = appPathInFolder(*inflated);
  if (!appPath) return nullptr;
  debugLog("Path To App: %@", foundation::escapingControlCharacters(*appPath));
  const auto url = urlForPath(*appPath);
  if (!url) return nullptr;

  std::shared_ptr<QVTIPA> ipa(new QVTIPA);
  try {
    ipa->setBundle(foundation::Bundle::bundleWithPath(*appPath));
  } catch (const foundation::Exception& exception) {
    foundation::systemLog("%@", exception.what());
    return nullptr;
  }
  ipa->setPath(*appPath);
  const auto info = QVTInfoPlist::initWithAppDirectory(url->path());
  ipa->setBundleIdentifier(info->bundleIdentifier());
  ipa->setDisplayVersion(info->displayVersion());
  ipa->setBuildVersion(info->buildVersion());
  ipa->setProvisioningProfilePath(
      foundation::appendingPathComponent(*appPath, "embedded.mobileprovision"));
  return ipa;
}

#include "preparation/QVTIPA.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include "console/QVTCLUtilLog.h"
#include "foundation/base/Text.h"
#include "foundation/process/SystemLog.h"
#include "preparation/QVTFileSystemUtils.h"

using foundation::Result;

namespace {

/// What a link leads to is not the archive's: signing would change it, and the end of the run would
/// remove it.
Result<> checkNoLink(const std::string& path) {
  std::error_code problem;
  if (!std::filesystem::is_symlink(path, problem)) return {};
  return foundation::makeError(foundation::kPOSIXErrorDomain, ELOOP,
                               path + " is a link, which is not followed");
}

Result<std::string> appPathIn(const Inflation& inflation) {
  const std::string payload = inflation.folder + "Payload";
  if (const auto checked = checkNoLink(payload); !checked) return checked.error();
  if (!inflation.otherApps.empty()) {
    foundation::systemLog("ignoring what did not come with this archive in %@: %@", payload,
                          foundation::joined(inflation.otherApps, ", "));
  }
  if (inflation.apps.empty()) {
    std::optional<foundation::Error> unlistable;
    QVTFileSystemUtils::findPathsToAppsInDirectory(payload, &unlistable);
    if (unlistable) foundation::systemLog("%@", unlistable->localizedDescription());
    return foundation::makeError(foundation::kPOSIXErrorDomain, ENOENT, "no app in its Payload");
  }
  std::string app = payload + "/" + inflation.apps.front();
  return checkNoLink(app).map([&] { return std::move(app); });
}

}  // namespace

Result<std::shared_ptr<QVTIPA>> QVTIPA::withInflation(const Inflation& inflation) {
  const auto appPath = appPathIn(inflation);
  if (!appPath) return appPath.error();
  debugLog("Path To App: %@", foundation::escapingControlCharacters(*appPath));
  std::shared_ptr<QVTIPA> ipa(new QVTIPA);
  try {
    ipa->readApp(*appPath);
  } catch (const foundation::Exception& exception) {
    return foundation::makeError(foundation::kPOSIXErrorDomain, EIO, exception.what());
  }
  return ipa;
}

std::shared_ptr<QVTIPA> QVTIPA::initWithPath(const std::string& path) {
  const auto inflation = inflateArchive(path);
  if (!inflation) {
    QVTCLUtilLog("Unable to inflate IPA to temporary path: %@", inflation.error());
    return nullptr;
  }
  auto ipa = withInflation(*inflation);
  if (ipa) return *std::move(ipa);
  // The caller reports an archive without apps.
  if (ipa.error().code != ENOENT) {
    foundation::systemLog("%@", ipa.error().localizedDescription());
  }
  return nullptr;
}

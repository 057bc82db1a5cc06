#include "xcode/QVTXcodeArchive.h"

#include "foundation/app/UserDefaults.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/format/PropertyList.h"
#include "foundation/process/SystemLog.h"

using foundation::appendingPathComponent;
using foundation::Dictionary;

namespace {

constexpr std::string_view kXcodePreferences = "com.apple.dt.Xcode";
constexpr std::string_view kLocationPreference = "IDECustomDistributionArchivesLocation";

/// True unless some prefix of the path leads above its starting folder.
bool staysInside(const std::string& path) {
  int depth = 0;
  for (const std::string& component : foundation::split(path, '/')) {
    if (component.empty() || component == ".") continue;
    depth += component == ".." ? -1 : 1;
    if (depth < 0) return false;
  }
  return true;
}

/// The app's folder, relative to "Products".
std::optional<std::string> relativeAppPath(const Dictionary& info) {
  const Dictionary* const properties = foundation::dictionaryAt(info, "ApplicationProperties");
  if (properties && !properties->empty()) {
    return foundation::stringAt(*properties, "ApplicationPath");
  }
  const auto name = foundation::stringAt(info, "Name");
  if (!name) return std::nullopt;
  return "Applications/" + *name + ".app";
}

}  // namespace

std::shared_ptr<QVTXcodeArchive> QVTXcodeArchive::initWithURL(
    const std::optional<foundation::URL>& url) {
  if (!url) return nullptr;
  const std::string path = url->path();
  const auto info = foundation::PropertyList::dictionaryWithContentsOfFile(
      appendingPathComponent(path, "Info.plist"));
  if (!info || info->empty()) return nullptr;
  const auto app = relativeAppPath(*info);
  if (!app) return nullptr;
  const std::string appPath =
      appendingPathComponent(appendingPathComponent(path, "Products"), *app);
  if (!staysInside(*app)) {
    foundation::systemLogOnce(appPath + " leads out of " + path + " and is not used");
    return nullptr;
  }
  if (!foundation::FileManager::isUsableInsideDirectory(appPath, path) ||
      !foundation::FileManager::isDirectoryAtPath(appPath)) {
    return nullptr;
  }
  auto archive = std::shared_ptr<QVTXcodeArchive>(new QVTXcodeArchive);
  archive->setCreationDate(foundation::dateAt(*info, "CreationDate"));
  archive->readApp(appPath);
  return archive->bundle() ? archive : nullptr;
}

std::optional<std::string> QVTXcodeArchive::currentArchiveLocation() {
  auto& defaults = foundation::UserDefaults::standardUserDefaults();
  defaults.addSuiteNamed(kXcodePreferences);
  if (auto custom = defaults.stringForKey(kLocationPreference)) return custom;
  const std::string home = foundation::FileManager::homeDirectory();
  if (home.empty()) return std::nullopt;
  return appendingPathComponent(home, "Library/Developer/Xcode/Archives");
}

#include "preparation/QVTInfoPlist.h"

#include "foundation/base/Format.h"
#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"
#include "foundation/process/SystemLog.h"
#include "package/AppPackage.h"

namespace {

/// `what` begins the log lines ("Build version").
std::string guaranteeVersion(const foundation::Value* version, std::string_view what,
                             std::string_view defaultVersion) {
  const std::string* text = version ? version->string() : nullptr;
  if (!text) {
    foundation::systemLog("%@ is of type %@, returning default version.", what,
                          foundation::className(version));
    return std::string(defaultVersion);
  }
  if (text->empty()) {
    foundation::systemLog("%@ string is empty, returning default version.", what);
    return std::string(defaultVersion);
  }
  return *text;
}

}  // namespace

std::shared_ptr<QVTInfoPlist> QVTInfoPlist::initWithDictionary(foundation::Dictionary info) {
  return std::shared_ptr<QVTInfoPlist>(new QVTInfoPlist(std::move(info)));
}

std::shared_ptr<QVTInfoPlist> QVTInfoPlist::initWithContentsOfFile(std::string_view path) {
  auto info = foundation::PropertyList::dictionaryWithContentsOfFile(path);
  return initWithDictionary(std::move(info).value_or(foundation::Dictionary()));
}

std::shared_ptr<QVTInfoPlist> QVTInfoPlist::initWithAppDirectory(std::string_view path) {
  const package::AppPackage app{std::string(path)};
  return initWithDictionary(app.infoDictionary().value_or(foundation::Dictionary()));
}

std::shared_ptr<QVTInfoPlist> QVTInfoPlist::initWithFrameworkDirectory(std::string_view path) {
  for (const char* name : {"Resources/Info.plist", "Info.plist"}) {
    const std::string file = foundation::appendingPathComponent(path, name);
    if (foundation::FileManager::fileExistsAtPath(file)) return initWithContentsOfFile(file);
  }
  return nullptr;
}

std::string QVTInfoPlist::bundleIdentifier() const {
  const foundation::Value* identifier = foundation::find(info_, "CFBundleIdentifier");
  if (identifier && identifier->string()) return *identifier->string();
  foundation::systemLog("Bundle indentifier is of type %@, returning empty string.",
                        foundation::className(identifier));
  return {};
}

std::string QVTInfoPlist::buildVersion() const {
  return guaranteeBuildVersion(foundation::find(info_, "CFBundleVersion"));
}

std::string QVTInfoPlist::displayVersion() const {
  return guaranteeDisplayVersion(foundation::find(info_, "CFBundleShortVersionString"));
}

std::string QVTInfoPlist::guaranteeBuildVersion(const foundation::Value* version) {
  return guaranteeVersion(version, "Build version", QVTDefaultBuildVersionString);
}

std::string QVTInfoPlist::guaranteeDisplayVersion(const foundation::Value* version) {
  return guaranteeVersion(version, "Display version", QVTDefaultDisplayVersionString);
}

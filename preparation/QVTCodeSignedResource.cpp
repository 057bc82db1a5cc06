#include "preparation/QVTCodeSignedResource.h"

#include "foundation/base/Format.h"
#include "foundation/file/FileManager.h"
#include "package/AppPackage.h"
#include "preparation/QVTInfoPlist.h"

void QVTCodeSignedResource::readApp(const std::string& path) {
  const package::AppPackage app(path);
  bundle_ = app.bundle();
  path_ = path;
  provisioningProfilePath_ = app.profilePath();
  const auto info = QVTInfoPlist::initWithAppDirectory(path);
  bundleIdentifier_ = info->bundleIdentifier();
  displayVersion_ = info->displayVersion();
  buildVersion_ = info->buildVersion();
}

std::optional<std::string> QVTCodeSignedResource::usableProvisioningProfilePath() const {
  const bool isUsable =
      path_ && provisioningProfilePath_ &&
      foundation::FileManager::isUsableInsideDirectory(*provisioningProfilePath_, *path_);
  return isUsable ? provisioningProfilePath_ : std::nullopt;
}

std::string QVTCodeSignedResource::description() const {
  const std::optional<foundation::Value> date =
      creationDate_ ? std::optional<foundation::Value>(*creationDate_) : std::nullopt;
  return foundation::format("<%@: %p %@ %@ %@ %@>", className(), static_cast<const void*>(this),
                            bundleIdentifier_, displayVersion_, buildVersion_, date);
}

bool QVTCodeSignedResource::isEqual(const QVTCodeSignedResource& other) const {
  return foundation::isEqual(creationDate_, other.creationDate_) &&
         foundation::isEqual(path_, other.path_) &&
         foundation::isEqual(bundleIdentifier_, other.bundleIdentifier_);
}

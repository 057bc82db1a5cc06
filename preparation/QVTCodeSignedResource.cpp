#include "preparation/QVTCodeSignedResource.h"

#include "foundation/base/Format.h"
#include "foundation/file/FileManager.h"

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

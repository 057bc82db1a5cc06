#include "inspect/AppIdentity.h"

#include "foundation/file/FileManager.h"
#include "inspect/Report.h"

namespace inspect {

foundation::Dictionary describeIdentity(const QVTCodeSignedResource& resource) {
  const auto stated = [&info = resource.bundle()->infoDictionary()](std::string_view key) {
    return orNull(foundation::stringAt(info, key));
  };
  const auto& profile = resource.provisioningProfilePath();
  const bool hasProfile = profile && foundation::FileManager::fileExistsAtPath(*profile);
  return {
      {"path", orNull(resource.path())},
      {"bundleIdentifier", stated("CFBundleIdentifier")},
      {"displayVersion", stated("CFBundleShortVersionString")},
      {"buildVersion", stated("CFBundleVersion")},
      {"creationDate", orNull(resource.creationDate())},
      {"provisioningProfilePath", hasProfile ? foundation::Value(*profile) : foundation::Value()}};
}

}  // namespace inspect

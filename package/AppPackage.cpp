#include "package/AppPackage.h"

#include <cerrno>
#include <filesystem>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"

namespace package {

namespace FileManager = foundation::FileManager;
using foundation::appendingPathComponent;
using foundation::Result;

namespace {

constexpr const char* kProfile = "embedded.mobileprovision";
constexpr const char* kMacProfile = "embedded.provisionprofile";

Result<std::optional<ProvisioningProfile>> readProfile(const std::filesystem::path& path) {
  return FileManager::contentsOfFile(path, foundation::Links::refused)
      .andThen([&](const foundation::Data& file) {
        return ProvisioningProfile::parse(file.bytes()).mapError([&](foundation::Error error) {
          return foundation::makeError(error.domain, error.code,
                                       path.string() + ": " + error.localizedDescription());
        });
      })
      .map([](ProvisioningProfile profile) { return std::optional(std::move(profile)); });
}

}  // namespace

std::string AppPackage::infoPlistPath() const {
  return appendingPathComponent(path_, "Info.plist");
}

std::string AppPackage::profilePath() const { return appendingPathComponent(path_, kProfile); }

std::shared_ptr<foundation::Bundle> AppPackage::bundle() const {
  return foundation::Bundle::bundleWithPath(path_);
}

std::optional<foundation::Dictionary> AppPackage::infoDictionary() const {
  const std::string file = infoPlistPath();
  if (!FileManager::isUsableInsideDirectory(file, path_)) return std::nullopt;
  return foundation::PropertyList::dictionaryWithContentsOfFile(file);
}

Result<std::optional<ProvisioningProfile>> AppPackage::profile() const {
  for (const char* name : {kProfile, kMacProfile}) {
    const std::string path = appendingPathComponent(path_, name);
    if (!FileManager::fileExistsAtPath(path)) continue;
    std::error_code failed;
    const auto resolved = std::filesystem::canonical(path, failed);
    if (!failed && FileManager::isItemInsideDirectory(resolved, path_))
      return readProfile(resolved);
    return foundation::makeError(foundation::kPOSIXErrorDomain, ELOOP,
                                 path + " is a link that leads out of the bundle");
  }
  return std::optional<ProvisioningProfile>();
}

}  // namespace package

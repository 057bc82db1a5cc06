#pragma once

#include <memory>
#include <string>

#include "foundation/base/Result.h"
#include "preparation/QVTCodeSignedResource.h"

namespace inspect {

/// An app from an .app, .ipa or .xcarchive. An .ipa is unpacked as in a run of the tool, but into a
/// folder that this object removes.
class AppSource {
 public:
  /// Fails with the path and what is missing there.
  static foundation::Result<AppSource> open(const std::string& path);

  /// Never empty; its path and bundle are set.
  [[nodiscard]] const QVTCodeSignedResource& resource() const { return *resource_; }

 private:
  struct FolderRemover {
    void operator()(const std::string* path) const;
  };

  AppSource() = default;
  foundation::Result<> makeFolder();

  /// For an .ipa.
  std::unique_ptr<const std::string, FolderRemover> folder_;
  std::shared_ptr<QVTCodeSignedResource> resource_;
};

/// path, bundleIdentifier, displayVersion, buildVersion, creationDate and provisioningProfilePath.
/// Unlike in the resource, whose bundle must be set, a value that Info.plist does not have as a
/// string is null, and so is the path of a missing profile.
foundation::Dictionary describeIdentity(const QVTCodeSignedResource& resource);

}  // namespace inspect

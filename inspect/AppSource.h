#pragma once

#include <memory>
#include <string>

#include "foundation/base/Result.h"
#include "preparation/QVTCodeSignedResource.h"

namespace inspect {

/// An app opened from an .app, an .ipa or an .xcarchive. An .ipa is inflated as the tool does it,
/// but into a folder of its own that goes with this object.
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

  /// Of an .ipa; removed with all it holds.
  std::unique_ptr<const std::string, FolderRemover> folder_;
  std::shared_ptr<QVTCodeSignedResource> resource_;
};

}  // namespace inspect

#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "foundation/base/Result.h"
#include "preparation/QVTCodeSignedResource.h"

namespace inspect {

/// A folder of this run's own, removed with all it holds.
class PrivateFolder {
 public:
  static foundation::Result<PrivateFolder> make();
  PrivateFolder(PrivateFolder&& other) noexcept : path_(std::move(other.path_)) {
    other.path_.clear();
  }
  PrivateFolder& operator=(PrivateFolder&&) = delete;
  ~PrivateFolder();
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  explicit PrivateFolder(std::filesystem::path path) : path_(std::move(path)) {}
  std::filesystem::path path_;
};

/// An app opened from an .app, an .ipa or an .xcarchive. An .ipa is inflated as the tool does it,
/// but into a folder of its own that goes with this object.
class AppSource {
 public:
  /// Fails with the path and what is missing there.
  static foundation::Result<AppSource> open(const std::string& path);

  /// Never empty; its path and bundle are set.
  [[nodiscard]] const QVTCodeSignedResource& resource() const { return *resource_; }

 private:
  AppSource() = default;
  std::optional<PrivateFolder> folder_;
  std::shared_ptr<QVTCodeSignedResource> resource_;
};

}  // namespace inspect

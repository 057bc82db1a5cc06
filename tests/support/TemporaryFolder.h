#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace test {

/// A new empty folder, removed with its contents at the end of its scope.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

  /// Writes a file below the folder, creating parents; returns its path.
  std::filesystem::path write(const std::filesystem::path& name, std::string_view content) const;

 private:
  std::filesystem::path path_;
};

/// The whole file; fails the test when it cannot be read.
std::string contentsOf(const std::filesystem::path& path);

/// Sets an environment variable for a scope (nullptr unsets it), then restores it.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const char* value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::string before_;
  bool wasSet_ = false;
};

}  // namespace test

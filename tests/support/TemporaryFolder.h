#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

  /// `writeFile` below the folder.
  std::filesystem::path write(const std::filesystem::path& name, std::string_view content) const;

 private:
  std::filesystem::path path_;
};

/// Writes a file, creating parents; returns its path. Throws when it cannot.
std::filesystem::path writeFile(const std::filesystem::path& path, std::string_view content);
/// The same for a program or script, which everyone may run.
std::filesystem::path writeProgram(const std::filesystem::path& path, std::string_view content);

/// The whole file; fails the test when it cannot be read.
std::string contentsOf(const std::filesystem::path& path);

/// Copies a folder with everything in it, links as links.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);

/// The paths of everything below a folder, relative to it and sorted.
std::vector<std::string> pathsBelow(const std::filesystem::path& folder);
/// The same with each item's mode, time, and content or link target, as an archive.
std::string snapshot(const std::filesystem::path& folder);

/// Sets an environment variable for a scope (nullptr unsets it), then restores it.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const char* value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace test

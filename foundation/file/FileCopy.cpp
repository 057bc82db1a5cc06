#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/base/Path.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/private/FileItems.h"
#include "foundation/host/Host.h"
#include "foundation/process/Interruption.h"

namespace foundation::FileManager {

namespace fs = std::filesystem;

namespace {

/// Access and modification time for utimensat(2).
struct Times {
  explicit Times(const struct stat& details)
      : values{host::accessTime(details), host::modificationTime(details)} {}
  struct timespec values[2];
};

/// An item by its name in an open folder.
struct Place {
  int folder;
  const char* name;
};

Result<> copyLink(Place from, Place to, const std::string& path) {
  struct stat details {};
  if (::fstatat(from.folder, from.name, &details, AT_SYMLINK_NOFOLLOW) != 0) {
    return fileError(errno, "examine", path);
  }
  // Some file systems do not report a link's size, so the buffer holds the longest link.
  std::string content(65536, '\0');
  const ssize_t length = ::readlinkat(from.folder, from.name, content.data(), content.size());
  if (length < 0) return fileError(errno, "read link", path);
  content.resize(static_cast<std::size_t>(length));
  if (::symlinkat(content.c_str(), to.folder, to.name) != 0) {
    return fileError(errno, "copy link", path);
  }
  if (::utimensat(to.folder, to.name, Times(details).values, AT_SYMLINK_NOFOLLOW) != 0) {
    return fileError(errno, "set times of the copy of", path);
  }
  return {};
}

Result<> copyFile(Place from, Place to, const std::string& path) {
  const FileDescriptor source(
      ::openat(from.folder, from.name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (!source) return fileError(errno, "open", path);
  struct stat details {};
  if (::fstat(source.get(), &details) != 0) return fileError(errno, "examine", path);
  if (!S_ISREG(details.st_mode)) return fileError(EINVAL, "copy", path);
  FileDescriptor target = host::copyFile(source.get(), to.folder, to.name);
  if (!target) return fileError(errno, "copy", path);
  if (::fchmod(target.get(), details.st_mode & kPermissions) != 0 ||
      ::futimens(target.get(), Times(details).values) != 0) {
    return fileError(errno, "set permissions and times of the copy of", path);
  }
  if (::close(target.release()) != 0) return fileError(errno, "copy", path);
  return {};
}

Result<> copyItem(DirectoryEntry::Kind kind, Place from, Place to, const std::string& path) {
  if (kind == DirectoryEntry::Kind::link) return copyLink(from, to, path);
  if (kind == DirectoryEntry::Kind::file) return copyFile(from, to, path);
  return fileError(EINVAL, "copy what is neither file, folder nor link:", path);
}

class TreeCopier {
 public:
  TreeCopier(std::string source, std::string target)
      : source_(std::move(source)), target_(std::move(target)) {}

  Result<> copy() {
    const FileDescriptor root(::open(source_.c_str(), kOpenFolder));
    struct stat details {};
    if (!root || ::fstat(root.get(), &details) != 0) {
      return fileError(errno, "open folder", source_);
    }
    const auto copyNext = [&](const DirectoryEntry& entry, int from) {
      throwIfInterrupted();
      return copyEntry(entry, from).map([] { return true; });
    };
    return beginFolder({AT_FDCWD, target_.c_str()}, "", details)
        .andThen([&] { return openTargetRoot(); })
        .andThen([&] { return enter(""); })
        .andThen([&] { return walkDirectory(root, source_, copyNext); })
        .andThen([&] { return finishFolders(); });
  }

 private:
  struct Folder {
    std::string subpath;
    struct stat details;
  };

  Result<> openTargetRoot() {
    root_.reset(::open(target_.c_str(), kOpenFolder));
    if (root_ && ::fstat(root_.get(), &rootDetails_) == 0) return {};
    return fileError(errno, "open folder", target_);
  }

  [[nodiscard]] std::string targetPath(const std::string& subpath) const {
    return appendingPathComponent(target_, subpath);
  }

  Result<> copyEntry(const DirectoryEntry& entry, int from) {
    const char* const name = entry.name();
    const std::string path = appendingPathComponent(source_, entry.path);
    if (const std::string parent = deletingLastPathComponent(entry.path); parent != folderPath_) {
      if (Result<> entered = enter(parent); !entered) return entered;
    }
    const Place to{folder_.get(), name};
    if (entry.kind != DirectoryEntry::Kind::folder) {
      return copyItem(entry.kind, {from, name}, to, path);
    }
    struct stat details {};
    if (::fstatat(from, name, &details, AT_SYMLINK_NOFOLLOW) != 0) {
      return fileError(errno, "examine", path);
    }
    if (isSameItem(details, rootDetails_)) {
      return fileError(EINVAL, "copy a folder into itself:", source_);
    }
    return beginFolder(to, entry.path, details);
  }

  [[nodiscard]] FileDescriptor openTarget(const std::string& subpath) const {
    return openFileIn(root_.get(), subpath.empty() ? "." : subpath, O_RDONLY | O_DIRECTORY);
  }

  Result<> enter(const std::string& subpath) {
    folder_ = openTarget(subpath);
    folderPath_ = subpath;
    return folder_ ? Result<>() : fileError(errno, "open folder", targetPath(subpath));
  }

  /// Makes the folder accessible to its owner only. Its own permissions and times are set last,
  /// since it may be read-only, and every entry made in it changes its times.
  Result<> beginFolder(Place to, const std::string& subpath, const struct stat& details) {
    if (::mkdirat(to.folder, to.name, S_IRWXU) != 0) {
      return fileError(errno, "make folder", targetPath(subpath));
    }
    folders_.push_back({subpath, details});
    return {};
  }

  /// Inner folders first, while the outer ones can still be entered.
  [[nodiscard]] Result<> finishFolders() const {
    for (auto folder = folders_.rbegin(); folder != folders_.rend(); ++folder) {
      const FileDescriptor made = openTarget(folder->subpath);
      if (!made || ::futimens(made.get(), Times(folder->details).values) != 0 ||
          ::fchmod(made.get(), folder->details.st_mode & kPermissions) != 0) {
        return fileError(errno, "set permissions and times of", targetPath(folder->subpath));
      }
    }
    return {};
  }

  std::string source_;
  std::string target_;
  FileDescriptor root_;
  struct stat rootDetails_ {};
  /// The target's folder in which entries are being made, and its subpath.
  FileDescriptor folder_;
  std::string folderPath_;
  std::vector<Folder> folders_;
};

}  // namespace

Result<> copyItemAtPath(const fs::path& from, const fs::path& to) {
  // With a trailing slash the system would follow a link.
  const std::string source(withoutTrailingSlashes(from.native()));
  const std::string target(withoutTrailingSlashes(to.native()));
  struct stat details {};
  if (::lstat(source.c_str(), &details) != 0) return fileError(errno, "copy", source);
  struct stat existing {};
  if (::lstat(target.c_str(), &existing) == 0) return fileError(EEXIST, "copy to", target);
  if (S_ISDIR(details.st_mode)) return TreeCopier(source, target).copy();
  return copyItem(kindOf(details.st_mode), {AT_FDCWD, source.c_str()}, {AT_FDCWD, target.c_str()},
                  source);
}

}  // namespace foundation::FileManager

#include <cerrno>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/host/Host.h"
#include "foundation/process/Interruption.h"

namespace foundation::FileManager {

namespace fs = std::filesystem;

namespace {

using DirectoryHandle = Handle<DIR, ::closedir>;

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kPermissions = 07777;

Error failure(const std::string& what, const std::string& path, int error) {
  return posixError(error, "cannot " + what + " " + path, path);
}

/// A final slash would make the system follow a link.
std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

bool isSameItem(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

struct Entry {
  std::string name;
  struct stat details {};
};

/// The entries of an open folder, which is not closed.
Result<std::vector<Entry>> entriesOf(int folder, const std::string& path) {
  // The stream closes its descriptor, so it gets one of its own.
  const int own = ::openat(folder, ".", kOpenFolder);
  const DirectoryHandle stream(own < 0 ? nullptr : ::fdopendir(own));
  if (!stream) {
    const int error = errno;
    if (own >= 0) ::close(own);
    return failure("list folder", path, error);
  }
  std::vector<Entry> entries;
  for (;;) {
    errno = 0;
    const dirent* const found = ::readdir(stream.get());
    if (!found) break;
    Entry entry{found->d_name};
    if (entry.name == "." || entry.name == "..") continue;
    if (::fstatat(folder, found->d_name, &entry.details, AT_SYMLINK_NOFOLLOW) != 0) {
      return failure("examine", appendingPathComponent(path, entry.name), errno);
    }
    entries.push_back(std::move(entry));
  }
  if (errno != 0) return failure("list folder", path, errno);
  return entries;
}

// ---- Copying

/// Copies one tree folder by folder, with a list of those that still wait, so that neither the
/// depth of the tree nor its size costs descriptors or stack.
class TreeCopier {
 public:
  TreeCopier(std::string source, std::string target)
      : source_(std::move(source)), target_(std::move(target)) {}

  Result<> copy() {
    Entry root;
    if (::lstat(source_.c_str(), &root.details) != 0) return failure("copy", source_, errno);
    struct stat existing {};
    if (::lstat(target_.c_str(), &existing) == 0) return failure("copy to", target_, EEXIST);
    if (!S_ISDIR(root.details.st_mode)) {
      return copyEntry(AT_FDCWD, source_.c_str(), AT_FDCWD, target_.c_str(), root.details, source_);
    }
    if (Result<> begun = beginFolder(AT_FDCWD, target_.c_str(), "", root.details); !begun) {
      return begun;
    }
    if (::lstat(target_.c_str(), &targetRoot_) != 0) return failure("examine", target_, errno);
    for (std::size_t next = 0; next < folders_.size(); ++next) {
      // A copy: the list grows meanwhile.
      const std::string subpath = folders_[next].subpath;
      if (Result<> copied = copyFolder(subpath); !copied) return copied;
    }
    return finishFolders();
  }

 private:
  struct Folder {
    std::string subpath;
    struct stat details;
  };

  std::string sourcePath(const std::string& subpath) const {
    return subpath.empty() ? source_ : source_ + "/" + subpath;
  }
  std::string targetPath(const std::string& subpath) const {
    return subpath.empty() ? target_ : target_ + "/" + subpath;
  }

  /// Makes the folder for its owner only; its own permissions and times come last, since a folder
  /// may be read-only and every entry made in it changes its time.
  Result<> beginFolder(int parent, const char* name, const std::string& subpath,
                       const struct stat& details) {
    if (::mkdirat(parent, name, S_IRWXU) != 0) {
      return failure("make folder", targetPath(subpath), errno);
    }
    folders_.push_back({subpath, details});
    return {};
  }

  Result<> copyFolder(const std::string& subpath) {
    const std::string path = sourcePath(subpath);
    const FileDescriptor from(::open(path.c_str(), kOpenFolder));
    if (!from) return failure("open folder", path, errno);
    const FileDescriptor to(::open(targetPath(subpath).c_str(), kOpenFolder));
    if (!to) return failure("open folder", targetPath(subpath), errno);
    Result<std::vector<Entry>> entries = entriesOf(from.get(), path);
    if (!entries) return entries.error();
    for (const Entry& entry : *entries) {
      throwIfInterrupted();
      const char* const name = entry.name.c_str();
      if (isSameItem(entry.details, targetRoot_)) {
        return failure("copy a folder into itself:", source_, EINVAL);
      }
      const std::string below = subpath.empty() ? entry.name : subpath + "/" + entry.name;
      Result<> copied =
          S_ISDIR(entry.details.st_mode)
              ? beginFolder(to.get(), name, below, entry.details)
              : copyEntry(from.get(), name, to.get(), name, entry.details, sourcePath(below));
      if (!copied) return copied;
    }
    return {};
  }

  static Result<> copyEntry(int from, const char* name, int to, const char* newName,
                            const struct stat& details, const std::string& path) {
    if (S_ISLNK(details.st_mode)) return copyLink(from, name, to, newName, details, path);
    if (S_ISREG(details.st_mode)) return copyFile(from, name, to, newName, path);
    return failure("copy what is neither file, folder nor link:", path, EINVAL);
  }

  static Result<> copyLink(int from, const char* name, int to, const char* newName,
                           const struct stat& details, const std::string& path) {
    // A link's size is unknown on some file systems, so the buffer takes the longest.
    std::string content(65536, '\0');
    const ssize_t length = ::readlinkat(from, name, content.data(), content.size());
    if (length < 0) return failure("read link", path, errno);
    content.resize(static_cast<std::size_t>(length));
    if (::symlinkat(content.c_str(), to, newName) != 0) return failure("copy link", path, errno);
    const struct timespec times[2] = {host::accessTime(details), host::modificationTime(details)};
    if (::utimensat(to, newName, times, AT_SYMLINK_NOFOLLOW) != 0) {
      return failure("set times of the copy of", path, errno);
    }
    return {};
  }

  static Result<> copyFile(int from, const char* name, int to, const char* newName,
                           const std::string& path) {
    const FileDescriptor source(
        ::openat(from, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!source) return failure("open", path, errno);
    struct stat details {};
    if (::fstat(source.get(), &details) != 0) return failure("examine", path, errno);
    if (!S_ISREG(details.st_mode)) return failure("copy", path, EINVAL);
    FileDescriptor target = host::copyFile(source.get(), to, newName);
    if (!target) return failure("copy", path, errno);
    const struct timespec times[2] = {host::accessTime(details), host::modificationTime(details)};
    if (::fchmod(target.get(), details.st_mode & kPermissions) != 0 ||
        ::futimens(target.get(), times) != 0) {
      return failure("set permissions and times of the copy of", path, errno);
    }
    if (::close(target.release()) != 0) return failure("copy", path, errno);
    return {};
  }

  Result<> finishFolders() const {
    for (auto folder = folders_.rbegin(); folder != folders_.rend(); ++folder) {
      const std::string path = targetPath(folder->subpath);
      const struct timespec times[2] = {host::accessTime(folder->details),
                                        host::modificationTime(folder->details)};
      if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0 ||
          ::chmod(path.c_str(), folder->details.st_mode & kPermissions) != 0) {
        return failure("set permissions and times of", path, errno);
      }
    }
    return {};
  }

  std::string source_;
  std::string target_;
  struct stat targetRoot_ {};
  std::vector<Folder> folders_;
};

// ---- Removing

/// Removes one tree, one folder open at a time: it goes down by name without following links, and
/// up by "..", making sure that this leads back to where it came from.
class TreeRemover {
 public:
  TreeRemover(int root, std::string path) : root_(root), path_(std::move(path)) {}

  Result<> remove() {
    if (Result<> entered = enter(root_, path_); !entered) return entered;
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.folders.empty()) {
        if (Result<> left = leave(); !left) return left;
        continue;
      }
      const std::string name = std::move(level.folders.back());
      level.folders.pop_back();
      if (Result<> entered = enter(current_.get(), name); !entered) return entered;
    }
    return {};
  }

 private:
  struct Level {
    std::string name;
    struct stat details {};
    /// Folders in this one that are still there.
    std::vector<std::string> folders;
  };

  std::string describe() const {
    std::string text;
    for (const Level& level : levels_) text = appendingPathComponent(text, level.name);
    return text;
  }

  /// Opens the folder, giving its owner the right to list and change it where that is missing.
  static FileDescriptor openForRemoval(int parent, const std::string& name, struct stat& details) {
    FileDescriptor folder(::openat(parent, name.c_str(), kOpenFolder));
    if (!folder && errno == EACCES &&
        ::fchmodat(parent, name.c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
      folder.reset(::openat(parent, name.c_str(), kOpenFolder));
    }
    if (!folder || ::fstat(folder.get(), &details) != 0) return FileDescriptor();
    if ((details.st_mode & S_IRWXU) != S_IRWXU) {
      // A failure shows at the first entry that cannot be removed.
      if (::fchmod(folder.get(), S_IRWXU) != 0) errno = 0;
    }
    return folder;
  }

  /// Goes into the folder and removes all in it that is no folder.
  Result<> enter(int parent, const std::string& name) {
    Level level;
    level.name = name;
    FileDescriptor folder = openForRemoval(parent, name, level.details);
    const int error = errno;
    levels_.push_back(std::move(level));
    if (!folder) return failure("remove", describe(), error);
    current_ = std::move(folder);
    Result<std::vector<Entry>> entries = entriesOf(current_.get(), path_);
    if (!entries) return entries.error();
    for (Entry& entry : *entries) {
      if (S_ISDIR(entry.details.st_mode)) {
        levels_.back().folders.push_back(std::move(entry.name));
      } else if (::unlinkat(current_.get(), entry.name.c_str(), 0) != 0 && errno != ENOENT) {
        const int problem = errno;
        return failure("remove", appendingPathComponent(describe(), entry.name), problem);
      }
    }
    return {};
  }

  /// Goes back to the folder above and removes the one just emptied.
  Result<> leave() {
    const std::string path = describe();
    const std::string name = std::move(levels_.back().name);
    levels_.pop_back();
    if (levels_.empty()) {
      current_.reset();
      return removeFolder(root_, name, path);
    }
    FileDescriptor above(::openat(current_.get(), "..", kOpenFolder));
    struct stat details {};
    if (!above || ::fstat(above.get(), &details) != 0) return failure("remove", path, errno);
    if (!isSameItem(details, levels_.back().details)) {
      return failure("remove a folder that was moved meanwhile:", path, EAGAIN);
    }
    current_ = std::move(above);
    return removeFolder(current_.get(), name, path);
  }

  static Result<> removeFolder(int parent, const std::string& name, const std::string& path) {
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0) return {};
    return failure("remove folder", path, errno);
  }

  int root_;
  std::string path_;
  FileDescriptor current_;
  std::vector<Level> levels_;
};

}  // namespace

Result<> copyItemAtPath(const fs::path& source, const fs::path& target) {
  return TreeCopier(withoutTrailingSlashes(source.native()),
                    withoutTrailingSlashes(target.native()))
      .copy();
}

Result<> removeItemAtPath(const fs::path& path) {
  return removeItemInFolder(AT_FDCWD, withoutTrailingSlashes(path.native()));
}

Result<> removeItemInFolder(int folder, const std::string& item) {
  struct stat details {};
  if (::fstatat(folder, item.c_str(), &details, AT_SYMLINK_NOFOLLOW) != 0) {
    return failure("remove", item, errno);
  }
  if (S_ISDIR(details.st_mode)) return TreeRemover(folder, item).remove();
  if (::unlinkat(folder, item.c_str(), 0) != 0) return failure("remove", item, errno);
  return {};
}

}  // namespace foundation::FileManager

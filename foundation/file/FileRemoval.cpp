#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/base/Path.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/private/FileItems.h"

namespace foundation::FileManager {

namespace fs = std::filesystem;

namespace {

/// Removes one tree with one folder open at a time. Goes down by name without following links, and
/// up by "..", checking that this leads back to the folder it came from.
class TreeRemover {
 public:
  TreeRemover(int root, std::string path) : root_(root), path_(std::move(path)) {}

  Result<> remove() {
    Result<> done = enter(root_, path_);
    while (done && !levels_.empty()) {
      std::vector<std::string>& folders = levels_.back().folders;
      if (folders.empty()) {
        done = leave();
        continue;
      }
      const std::string name = std::move(folders.back());
      folders.pop_back();
      done = enter(current_.get(), name);
    }
    return done;
  }

 private:
  struct Level {
    std::string name;
    struct stat details {};
    /// Subfolders that are still to be removed.
    std::vector<std::string> folders = {};
  };

  std::string describe() const {
    std::string text;
    for (const Level& level : levels_) text = appendingPathComponent(text, level.name);
    return text;
  }

  /// Opens the folder, first granting its owner any missing right to list and change it.
  static FileDescriptor openForRemoval(int parent, const std::string& name, struct stat& details) {
    FileDescriptor folder(::openat(parent, name.c_str(), kOpenFolder));
    if (!folder && errno == EACCES &&
        ::fchmodat(parent, name.c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
      folder.reset(::openat(parent, name.c_str(), kOpenFolder));
    }
    if (!folder || ::fstat(folder.get(), &details) != 0) return FileDescriptor();
    if ((details.st_mode & S_IRWXU) != S_IRWXU && ::fchmod(folder.get(), S_IRWXU) != 0) {
      errno = 0;  // shows at the first entry that cannot be removed
    }
    return folder;
  }

  /// Goes into the folder and removes everything in it except its subfolders.
  Result<> enter(int parent, const std::string& name) {
    levels_.push_back({.name = name});
    FileDescriptor folder = openForRemoval(parent, name, levels_.back().details);
    const int error = errno;
    if (!folder) return fileError(error, "remove", describe());
    current_ = std::move(folder);
    auto entries = entriesOf(current_, describe());
    if (!entries) return entries.error();
    for (DirectoryEntry& entry : *entries) {
      if (entry.kind == DirectoryEntry::Kind::folder) {
        levels_.back().folders.push_back(std::move(entry.path));
      } else if (::unlinkat(current_.get(), entry.name(), 0) != 0 && errno != ENOENT) {
        const int problem = errno;
        return fileError(problem, "remove", appendingPathComponent(describe(), entry.path));
      }
    }
    return {};
  }

  /// Goes back to the parent folder and removes the folder just emptied.
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
    if (!above || ::fstat(above.get(), &details) != 0) return fileError(errno, "remove", path);
    if (!isSameItem(details, levels_.back().details)) {
      return fileError(EAGAIN, "remove a folder that was moved meanwhile:", path);
    }
    current_ = std::move(above);
    return removeFolder(current_.get(), name, path);
  }

  static Result<> removeFolder(int parent, const std::string& name, const std::string& path) {
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0) return {};
    return fileError(errno, "remove folder", path);
  }

  int root_;
  std::string path_;
  FileDescriptor current_;
  std::vector<Level> levels_;
};

}  // namespace

Result<> removeItemAtPath(const fs::path& path) {
  // With a trailing slash the system would follow a link.
  return removeItemInFolder(AT_FDCWD, std::string(withoutTrailingSlashes(path.native())));
}

Result<> removeItemInFolder(int folder, const std::string& item) {
  struct stat details {};
  if (::fstatat(folder, item.c_str(), &details, AT_SYMLINK_NOFOLLOW) != 0) {
    return fileError(errno, "remove", item);
  }
  if (S_ISDIR(details.st_mode)) return TreeRemover(folder, item).remove();
  if (::unlinkat(folder, item.c_str(), 0) != 0) return fileError(errno, "remove", item);
  return {};
}

}  // namespace foundation::FileManager

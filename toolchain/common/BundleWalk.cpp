#include "toolchain/common/BundleWalk.h"

#include <cerrno>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/host/FileOpening.h"

namespace toolchain {

namespace {

using FolderHandle = foundation::Handle<DIR, ::closedir>;
using Kind = FolderEntry::Kind;

Kind kindFromMode(mode_t mode) {
  if (S_ISREG(mode)) return Kind::file;
  if (S_ISLNK(mode)) return Kind::link;
  return S_ISDIR(mode) ? Kind::folder : Kind::other;
}

/// Most file systems tell the type with the name; the others are asked.
Result<Kind> kindOf(int folder, const dirent& entry, const std::string& path) {
  if (entry.d_type == DT_REG) return Kind::file;
  if (entry.d_type == DT_LNK) return Kind::link;
  if (entry.d_type == DT_DIR) return Kind::folder;
  if (entry.d_type != DT_UNKNOWN) return Kind::other;
  struct stat details {};
  if (::fstatat(folder, entry.d_name, &details, AT_SYMLINK_NOFOLLOW) != 0) {
    return foundation::posixError(errno, "cannot examine " + path, path);
  }
  return kindFromMode(details.st_mode);
}

}  // namespace

Result<std::vector<FolderEntry>> walkFolder(const std::filesystem::path& root,
                                            const std::function<bool(const FolderEntry&)>& enter) {
  std::vector<FolderEntry> entries;
  std::vector<std::string> waiting = {""};
  while (!waiting.empty()) {
    const std::string folder = std::move(waiting.back());
    waiting.pop_back();
    const std::string path = root.native() + '/' + folder;
    auto opened = foundation::openFile(path, O_RDONLY | O_DIRECTORY, foundation::Links::refused);
    const FolderHandle stream(opened ? ::fdopendir(opened.get()) : nullptr);
    if (stream) opened.release();
    if (!stream) return foundation::posixError(errno, "cannot list " + path, path);
    errno = 0;
    while (const dirent* found = ::readdir(stream.get())) {
      const std::string_view name = found->d_name;
      if (name == "." || name == "..") continue;
      FolderEntry entry{folder + std::string(name), Kind::file};
      const auto kind = kindOf(::dirfd(stream.get()), *found, path + std::string(name));
      if (!kind) return kind.error();
      entry.kind = *kind;
      if (enter(entry)) {
        if (entry.kind == Kind::folder) waiting.push_back(entry.path + '/');
        entries.push_back(std::move(entry));
      }
      errno = 0;
    }
    if (errno != 0) return foundation::posixError(errno, "cannot list " + path, path);
  }
  return entries;
}

}  // namespace toolchain

#include "foundation/file/DirectoryWalk.h"

#include <cerrno>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>

#include "foundation/base/Path.h"
#include "foundation/file/private/FileItems.h"

namespace foundation {

namespace {

using Stream = Handle<DIR, ::closedir>;

constexpr int kOpenToList = O_RDONLY | O_DIRECTORY;

/// Most file systems store the type with the name. Absent with errno set on failure.
std::optional<DirectoryEntry::Kind> kindIn(int folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return kindOf(DTTOIF(entry.d_type));
  struct stat details {};
  if (::fstatat(folder, entry.d_name, &details, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return kindOf(details.st_mode);
}

}  // namespace

Result<std::vector<DirectoryEntry>> entriesOf(const FileDescriptor& folder,
                                              const std::string& path) {
  // The stream closes its descriptor, so it gets its own.
  FileDescriptor own(folder ? ::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0) : -1);
  const Stream stream(own ? ::fdopendir(own.get()) : nullptr);
  if (!stream) return fileError(errno, "list folder", path);
  own.release();
  std::vector<DirectoryEntry> entries;
  for (;;) {
    errno = 0;
    const dirent* const found = ::readdir(stream.get());
    if (!found) break;
    const std::string_view name = found->d_name;
    if (name == "." || name == "..") continue;
    if (const auto kind = kindIn(folder.get(), *found)) {
      entries.push_back({std::string(name), *kind});
    } else if (errno != ENOENT) {  // else removed meanwhile
      return fileError(errno, "examine", appendingPathComponent(path, name));
    }
  }
  if (errno != 0) return fileError(errno, "list folder", path);
  return entries;
}

Result<> walkDirectory(const std::filesystem::path& root, Links links, const DirectoryVisit& visit,
                       Unreadable unreadable) {
  return walkDirectory(openFile(root, kOpenToList, links), root, visit, unreadable);
}

Result<> walkDirectory(const FileDescriptor& root, const std::string& path,
                       const DirectoryVisit& visit, Unreadable unreadable) {
  auto entries = entriesOf(root, path);
  if (!entries) return entries.error();
  FileDescriptor opened;
  std::vector<std::string> waiting = {""};
  while (!waiting.empty()) {
    const std::string folder = std::move(waiting.back());
    waiting.pop_back();
    if (!folder.empty()) {
      opened = openFileIn(root.get(), folder, kOpenToList);
      entries = entriesOf(opened, appendingPathComponent(path, folder));
    }
    if (!entries && unreadable == Unreadable::skipped) continue;
    if (!entries) return entries.error();
    for (DirectoryEntry& entry : *entries) {
      entry.path = appendingPathComponent(folder, entry.path);
      const auto isEntered = visit(entry, folder.empty() ? root.get() : opened.get());
      if (!isEntered) return isEntered.error();
      if (*isEntered && entry.kind == DirectoryEntry::Kind::folder)
        waiting.push_back(std::move(entry.path));
    }
  }
  return {};
}

}  // namespace foundation

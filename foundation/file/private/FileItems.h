#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/base/Value.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/host/Host.h"

namespace foundation {

/// The permission bits of a mode, set-id and sticky bits included.
inline constexpr mode_t kPermissions = 07777;

inline constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

inline bool isSameItem(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

inline Date modificationDate(const struct stat& details) {
  const struct timespec time = host::modificationTime(details);
  return Date(std::chrono::seconds(time.tv_sec)) + std::chrono::microseconds(time.tv_nsec / 1000);
}

inline DirectoryEntry::Kind kindOf(mode_t mode) {
  using Kind = DirectoryEntry::Kind;
  if (S_ISREG(mode)) return Kind::file;
  if (S_ISLNK(mode)) return Kind::link;
  return S_ISDIR(mode) ? Kind::folder : Kind::other;
}

}  // namespace foundation

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/host/Host.h"

namespace foundation::host {

std::optional<Date> birthTime(const char* path) {
  struct statx details {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_STATX_SYNC_AS_STAT;
  if (::statx(AT_FDCWD, path, flags, STATX_BTIME, &details) != 0) return std::nullopt;
  if (!(details.stx_mask & STATX_BTIME)) return std::nullopt;
  return Date(std::chrono::seconds(details.stx_btime.tv_sec)) +
         std::chrono::microseconds(details.stx_btime.tv_nsec / 1000);
}

struct timespec accessTime(const struct stat& details) {
  return details.st_atim;
}

struct timespec modificationTime(const struct stat& details) {
  return details.st_mtim;
}

}  // namespace foundation::host

#include "foundation/host/FileCopying.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace foundation {

std::uint64_t copyRange(int source, std::uint64_t from, int target, std::uint64_t to,
                        std::uint64_t size, int& error) {
  error = 0;
  auto sourceOffset = static_cast<off64_t>(from);
  auto targetOffset = static_cast<off64_t>(to);
  std::uint64_t taken = 0;
  while (taken < size) {
    const ssize_t count =
        ::copy_file_range(source, &sourceOffset, target, &targetOffset, size - taken, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count > 0) {
      taken += static_cast<std::uint64_t>(count);
      continue;
    }
    const bool isRefusal = count == 0 || errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                           errno == EOPNOTSUPP || errno == EPERM || errno == EBADF;
    if (!isRefusal) error = errno;
    return taken;
  }
  return taken;
}

void beginFlush(int file, std::uint64_t offset, std::uint64_t size) {
  ::sync_file_range(file, static_cast<off64_t>(offset), static_cast<off64_t>(size),
                    SYNC_FILE_RANGE_WRITE);
}

}  // namespace foundation

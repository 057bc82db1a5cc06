#include "foundation/host/FileCopying.h"

#include <cerrno>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/host/Host.h"

namespace foundation {

namespace {

constexpr std::size_t kChunk = std::size_t{1} << 30;

/// True for the errors that mean that the call does not work for these two files.
bool isUnsupported(int error) {
  return error == EXDEV || error == ENOSYS || error == EINVAL || error == EOPNOTSUPP ||
         error == EPERM || error == EBADF || error == ETXTBSY;
}

/// Repeats a call that copies bytes at the files' current positions until the source ends. False
/// with errno set when it fails; sets `moved` once any bytes have been written.
template <class Call>
bool moveAll(Call call, bool& moved) {
  for (;;) {
    const ssize_t count = call();
    if (count > 0) {
      moved = true;
    } else if (count == 0) {
      return true;
    } else if (errno != EINTR) {
      return false;
    }
  }
}

bool copyContent(int source, int target) {
  if (::ioctl(target, FICLONE, source) == 0) return true;
  bool moved = false;
  const auto byRange = [&] {
    return ::copy_file_range(source, nullptr, target, nullptr, kChunk, 0);
  };
  if (moveAll(byRange, moved)) {
    // Some file systems (/proc is one) report the end at once for files that do contain bytes.
    if (moved) return true;
  } else if (moved || !isUnsupported(errno)) {
    return false;
  }
  return moveAll([&] { return ::sendfile(target, source, nullptr, kChunk); }, moved);
}

}  // namespace

std::uint64_t copyRange(int source, std::uint64_t from, int target, std::uint64_t to,
                        std::uint64_t size, int& error) {
  error = 0;
  auto sourceOffset = static_cast<off64_t>(from);
  auto targetOffset = static_cast<off64_t>(to);
  std::uint64_t taken = 0;
  while (taken < size) {
    const ssize_t count =
        ::copy_file_range(source, &sourceOffset, target, &targetOffset, size - taken, 0);
    if (count > 0) {
      taken += static_cast<std::uint64_t>(count);
    } else if (count == 0 || errno != EINTR) {
      if (count < 0 && !isUnsupported(errno)) error = errno;
      break;
    }
  }
  return taken;
}

void beginFlush(int file, std::uint64_t offset, std::uint64_t size) {
  ::sync_file_range(file, static_cast<off64_t>(offset), static_cast<off64_t>(size),
                    SYNC_FILE_RANGE_WRITE);
}

FileDescriptor host::copyFile(int source, int folder, const char* name) {
  FileDescriptor target(::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 S_IRUSR | S_IWUSR));
  if (!target) return target;
  if (copyContent(source, target.get())) return target;
  const int problem = errno;
  ::unlinkat(folder, name, 0);
  target.reset();
  errno = problem;
  return target;
}

}  // namespace foundation

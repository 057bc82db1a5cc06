#include "foundation/host/FileOpening.h"

#include <cerrno>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace foundation {

namespace {

/// Opens folder by folder: for kernels before 5.6, and sandboxes that do not know openat2.
FileDescriptor openStepByStep(int base, const std::filesystem::path& path, int flags) {
  FileDescriptor folder(
      ::openat(base, path.is_absolute() ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::filesystem::path last = ".";
  for (const auto& part : path.relative_path()) {
    if (!folder) return folder;
    if (last != ".") {
      folder.reset(::openat(folder.get(), last.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
      struct stat details {};
      if (folder && ::fstat(folder.get(), &details) == 0 && S_ISLNK(details.st_mode)) {
        errno = ELOOP;
        return {};
      }
    }
    last = part.empty() ? "." : part;
  }
  if (!folder) return folder;
  return FileDescriptor(::openat(folder.get(), last.c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

FileDescriptor openFile(const std::filesystem::path& path, int flags, Links links) {
  if (links == Links::followed) return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC));
  return openFileIn(AT_FDCWD, path, flags);
}

FileDescriptor openFileIn(int folder, const std::filesystem::path& path, int flags) {
  open_how how{};
  how.flags = static_cast<decltype(how.flags)>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_NO_SYMLINKS;
  const long opened = ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how);
  if (opened >= 0) return FileDescriptor(static_cast<int>(opened));
  if (errno != ENOSYS && errno != EPERM) return {};
  return openStepByStep(folder, path, flags);
}

FileDescriptor openFolder(const std::filesystem::path& path, Links links) {
  return openFile(path, O_PATH | O_DIRECTORY, links);
}

}  // namespace foundation

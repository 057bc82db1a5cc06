#include "foundation/file/LockFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "foundation/base/Path.h"
#include "foundation/base/WriteAll.h"
#include "foundation/file/private/FileItems.h"

namespace foundation {

namespace {

constexpr std::size_t kLongestContent = 4096;

/// True when the item is of this type and belongs to this user.
bool isOwn(int descriptor, mode_t type, struct stat& details) {
  return ::fstat(descriptor, &details) == 0 && (details.st_mode & S_IFMT) == type &&
         details.st_uid == ::geteuid();
}

/// Empty with errno on failure.
FileDescriptor openFolder(const std::string& path) {
  FileDescriptor folder(::open(path.c_str(), kOpenFolder | O_NONBLOCK));
  struct stat details {};
  if (folder && !isOwn(folder.get(), S_IFDIR, details)) {
    folder.reset();
    errno = EPERM;
  }
  return folder;
}

/// Empty with errno on failure.
FileDescriptor openFile(int folder, const std::string& name, LockFile::Missing missing) {
  const int make = missing == LockFile::Missing::make ? O_CREAT : 0;
  FileDescriptor file(::openat(folder, name.c_str(),
                               O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | make,
                               S_IRUSR | S_IWUSR));
  struct stat details {};
  // With a second name, writing would change another file.
  if (file && (!isOwn(file.get(), S_IFREG, details) || details.st_nlink > 1)) {
    file.reset();
    errno = EPERM;
  }
  return file;
}

enum class Lock { taken, held, unknown };

/// Absent with errno on failure.
std::optional<Lock> tryLock(int file) {
  int status;
  do {
    status = ::flock(file, LOCK_EX | LOCK_NB);
  } while (status != 0 && errno == EINTR);
  if (status == 0) return Lock::taken;
  if (errno == EWOULDBLOCK) return Lock::held;
  if (errno == ENOLCK || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL) {
    return Lock::unknown;
  }
  return std::nullopt;
}

/// False when the file has been removed or replaced since it was opened.
bool isStillThere(int folder, const std::string& name, int file) {
  struct stat named {};
  struct stat opened {};
  return ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         ::fstat(file, &opened) == 0 && isSameItem(named, opened);
}

}  // namespace

Result<LockFile> LockFile::take(const std::string& folder, const std::string& name,
                                Missing missing) {
  LockFile taken;
  taken.folderPath_ = folder;
  taken.name_ = name;
  // The previous owner may remove file and folder at any time; then this starts over.
  for (;;) {
    // The parent is never removed, so this failure is final.
    if (missing == Missing::make && ::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      return fileError(errno, "lock", folder);
    }
    taken.folder_ = openFolder(folder);
    if (taken.folder_) taken.file_ = openFile(taken.folder_.get(), name, missing);
    if (!taken.folder_ || !taken.file_) {
      if (errno != ENOENT) {
        Error failure = fileError(errno, "lock", appendingPathComponent(folder, name));
        // In case it has just been made; one with entries stays.
        if (missing == Missing::make) ::rmdir(folder.c_str());
        return failure;
      }
      if (missing == Missing::leave) return LockFile();
      continue;
    }
    const std::optional<Lock> lock = tryLock(taken.file_.get());
    if (!lock) return fileError(errno, "lock", appendingPathComponent(folder, name));
    if (*lock == Lock::held) return LockFile();
    taken.isExclusive_ = *lock == Lock::taken;
    if (isStillThere(taken.folder_.get(), name, taken.file_.get())) return taken;
  }
}

Date LockFile::lastWritten() const {
  struct stat details {};
  if (::fstat(file_.get(), &details) != 0) return Date::max();
  return modificationDate(details);
}

std::string LockFile::content() const {
  std::string text(kLongestContent, '\0');
  const ssize_t count = ::pread(file_.get(), text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

void LockFile::write(const std::string& content) {
  if (::ftruncate(file_.get(), 0) != 0) return;
  writeAllAt(file_.get(), 0, bytesOf(content));
  // Writing nothing does not change the time.
  ::futimens(file_.get(), nullptr);
}

void LockFile::remove() {
  if (file_ && isStillThere(folder_.get(), name_, file_.get())) {
    ::unlinkat(folder_.get(), name_.c_str(), 0);
    ::rmdir(folderPath_.c_str());
  }
  file_.reset();
  folder_.reset();
}

}  // namespace foundation

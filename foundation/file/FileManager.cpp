#include "foundation/file/FileManager.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include "foundation/base/WriteAll.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/file/private/FileItems.h"
#include "foundation/host/Host.h"
#include "foundation/process/Interruption.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"

namespace foundation::FileManager {

namespace fs = std::filesystem;

namespace {

/// Reads until `buffer` is full or the file ends. Returns the number of bytes read, or -1 with
/// errno set.
ssize_t readFully(int file, std::span<std::byte> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = ::read(file, buffer.data() + filled, buffer.size() - filled);
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(filled);
}

/// For files that do not report their size, such as those in /proc.
Result<Data> readUntilEnd(int file, const fs::path& path) {
  constexpr std::size_t chunk = std::size_t{64} * 1024;
  std::vector<std::byte> bytes;
  for (;;) {
    const std::size_t before = bytes.size();
    bytes.resize(before + chunk);
    const ssize_t count = readFully(file, std::span(bytes).subspan(before));
    if (count < 0) return fileError(errno, "read", path);
    bytes.resize(before + static_cast<std::size_t>(count));
    if (static_cast<std::size_t>(count) < chunk) return Data(std::move(bytes));
  }
}

Result<Data> readSized(int file, std::size_t size, const fs::path& path) {
  std::shared_ptr<std::byte[]> buffer = std::make_shared_for_overwrite<std::byte[]>(size);
  const ssize_t count = readFully(file, {buffer.get(), size});
  if (count < 0) return fileError(errno, "read", path);
  const Bytes bytes(buffer.get(), static_cast<std::size_t>(count));
  return Data(std::move(buffer), bytes);
}

struct OpenFile {
  FileDescriptor file;
  mode_t mode = 0;
  std::size_t size = 0;
};

/// Does not wait for a writer if the file is a pipe.
Result<OpenFile> openToRead(const fs::path& path, Links links = Links::followed) {
  FileDescriptor file = openFile(path, O_RDONLY | O_NONBLOCK, links);
  if (!file) return fileError(errno, "open", path);
  struct stat details {};
  if (::fstat(file.get(), &details) != 0) return fileError(errno, "examine", path);
  if (S_ISDIR(details.st_mode)) return fileError(EISDIR, "read", path);
  return OpenFile{std::move(file), details.st_mode, static_cast<std::size_t>(details.st_size)};
}

Result<Data> readRegular(const OpenFile& open, const fs::path& path) {
  try {
    if (open.size == 0) return readUntilEnd(open.file.get(), path);
    return readSized(open.file.get(), open.size, path);
  } catch (const std::bad_alloc&) {
    return fileError(ENOMEM, "read", path);
  }
}

void waitUntilReadable(int file) {
  pollfd events[] = {{.fd = file, .events = POLLIN, .revents = 0},
                     {.fd = interruptionDescriptor(), .events = POLLIN, .revents = 0}};
  ::poll(events, std::size(events), -1);
  throwIfInterrupted();
}

Result<Data> readPiped(int file, const fs::path& path) {
  std::vector<std::byte> bytes(kMostPiped + 1);
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    waitUntilReadable(file);
    const ssize_t count = ::read(file, bytes.data() + filled, bytes.size() - filled);
    if (count == 0) {
      bytes.resize(filled);
      return Data(std::move(bytes));
    }
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR && errno != EAGAIN) {
      return fileError(errno, "read", path);
    }
  }
  return makeError(kPOSIXErrorDomain, EFBIG, path.string() + " is longer than 1 MiB");
}

/// Gives a new file the permissions and, where this user may, the owner of the file that it
/// replaces. Returns 0 or an errno value.
int takePermissionsOf(const fs::path& path, int file) {
  struct stat old {};
  if (::lstat(path.c_str(), &old) != 0 || !S_ISREG(old.st_mode)) return 0;
  // Only root may give files away; for anyone else the new owner is right anyway.
  if (old.st_uid != ::geteuid() && ::fchown(file, old.st_uid, old.st_gid) != 0) errno = 0;
  return ::fchmod(file, old.st_mode & kPermissions) == 0 ? 0 : errno;
}

}  // namespace

bool fileExistsAtPath(const fs::path& path) { return ::access(path.c_str(), F_OK) == 0; }

bool isDirectoryAtPath(const fs::path& path) {
  struct stat details {};
  return ::stat(path.c_str(), &details) == 0 && S_ISDIR(details.st_mode);
}

bool isRealDirectory(const fs::path& path) {
  std::error_code failed;
  return fs::is_directory(fs::symlink_status(path, failed));
}

bool isItemInsideDirectory(const fs::path& item, const fs::path& folder) {
  std::error_code noFolder;
  std::error_code noItem;
  const fs::path outer = fs::canonical(folder, noFolder);
  const fs::path inner = fs::canonical(item, noItem);
  return !noFolder && !noItem &&
         std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

bool isUsableInsideDirectory(const fs::path& item, const fs::path& folder) {
  if (isItemInsideDirectory(item, folder)) return true;
  if (fileExistsAtPath(item)) {
    systemLogOnce(item.string() + " leads out of " + folder.string() + " and is not used");
  }
  return false;
}

Result<Data> contentsOfFile(const fs::path& path, Links links) {
  const auto open = openToRead(path, links);
  if (!open) return open.error();
  if (!S_ISREG(open->mode)) return fileError(EINVAL, "read a pipe or device,", path);
  return readRegular(*open, path);
}

Result<Data> contentsOfFileOrPipe(const fs::path& path) {
  return openToRead(path).andThen([&](const OpenFile& open) {
    return S_ISREG(open.mode) ? readRegular(open, path) : readPiped(open.file.get(), path);
  });
}

Result<> createDirectoryWithIntermediates(const fs::path& path) {
  std::error_code problem;
  fs::create_directories(path, problem);
  if (problem) return fileError(problem.value(), "make folder", path);
  if (!isDirectoryAtPath(path))
    return fileError(path.empty() ? ENOENT : EEXIST, "make folder", path);
  return {};
}

Result<std::vector<std::string>> contentsOfDirectoryAtPath(const fs::path& path) {
  return entriesOf(openFile(path, O_RDONLY | O_DIRECTORY), path)
      .map([](std::vector<DirectoryEntry> entries) {
        std::vector<std::string> names;
        names.reserve(entries.size());
        for (DirectoryEntry& entry : entries) names.push_back(std::move(entry.path));
        return names;
      });
}

Result<std::vector<std::string>> visibleContentsOfDirectoryAtPath(const fs::path& path) {
  Result<std::vector<std::string>> names = contentsOfDirectoryAtPath(path);
  if (names) std::erase_if(*names, [](const std::string& name) { return name.starts_with('.'); });
  return names;
}

Result<std::vector<std::string>> subpathsOfDirectoryAtPath(const fs::path& path) {
  std::vector<std::string> found;
  const auto add = [&](const DirectoryEntry& entry, int) {
    found.push_back(entry.path);
    return true;
  };
  return walkDirectory(path, Links::followed, add, Unreadable::skipped).map([&] {
    return std::move(found);
  });
}

std::optional<Date> creationDateOfItemAtPath(const fs::path& path) {
  if (const auto born = host::birthTime(path.c_str())) return born;
  return modificationDateOfItemAtPath(path);
}

std::optional<Date> modificationDateOfItemAtPath(const fs::path& path) {
  struct stat details {};
  if (::lstat(path.c_str(), &details) != 0) return std::nullopt;
  return modificationDate(details);
}

Result<> writeAtomically(Bytes bytes, const fs::path& path) {
  const fs::path beside =
      path.parent_path() / (".sendoff-" + ProcessInfo::globallyUniqueString() + ".tmp");
  FileDescriptor file(::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file) return fileError(errno, "write", path);
  int error = takePermissionsOf(path, file.get());
  if (!error) error = writeAll(file.get(), bytes);
  if (!error && ::fsync(file.get()) != 0) error = errno;
  if (::close(file.release()) != 0 && !error) error = errno;
  if (!error && std::rename(beside.c_str(), path.c_str()) != 0) error = errno;
  if (!error) return {};
  ::unlink(beside.c_str());
  return fileError(error, "write", path);
}

}  // namespace foundation::FileManager

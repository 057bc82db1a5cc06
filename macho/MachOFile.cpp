#include "macho/MachOFile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "macho/MachOSlice.h"
#include "macho/Mappings.h"
#include "macho/core/Definitions.h"

namespace macho {
namespace {

constexpr std::int64_t kSmallestFile = 16;
constexpr unsigned kRegularFileBit = 0x8000;

/// Closes after a failure, whose cause stays in `errno`.
bool closeAndFail(QVTMachOFile& file) {
  const int cause = errno;
  ::close(file.fd);
  file.fd = -1;
  errno = cause;
  return false;
}

/// Only headers and load commands are looked at, each once: reading ahead would fetch megabytes
/// that nobody asks for.
const void* mapForScatteredReads(const QVTMachOFile& file) {
  const auto size = static_cast<std::size_t>(file.mappedSize);
  void* const start = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.fd, 0);
  if (start == MAP_FAILED) return nullptr;
  ::madvise(start, size, MADV_RANDOM);
  return start;
}

void enumerateUniversal(const void* address, const Reach& reach, const SliceCallback& callback) {
  const auto header = reach.read<fat_header>(address);
  if (!header) return;
  const std::uint64_t count = byteSwapped(*header).nfat_arch;
  for (std::uint64_t index = 0; index < count; ++index) {
    const auto stored =
        reach.read<fat_arch>(address, sizeof(fat_header) + index * sizeof(fat_arch));
    if (!stored) return;
    const fat_arch arch = byteSwapped(*stored);
    const QVTMachOSlice slice{reach.advance(address, arch.offset), arch.cputype, arch.cpusubtype};
    callback(&slice);
  }
}

}  // namespace

bool QVTMachOFileInitWithPath(QVTMachOFile* file, const char* path) {
  if (!file || !path) return false;
  *file = {};
  // A pipe without a writer must not hold up the opening; it is refused below.
  file->fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file->fd < 0) return false;
  struct stat details {};
  if (::fstat(file->fd, &details) != 0) return closeAndFail(*file);
  file->mappedSize = static_cast<std::uint64_t>(details.st_size);
  if (details.st_size < kSmallestFile || !(details.st_mode & kRegularFileBit)) {
    return closeAndFail(*file);
  }
  file->mappedFile = mapForScatteredReads(*file);
  if (!file->mappedFile) return closeAndFail(*file);
  rememberMapping(file->mappedFile, file->mappedSize, path);
  return true;
}

bool QVTMachOFileInitWithCurrent(QVTMachOFile* file) {
  const QVTMachOSlice current = QVTMachOSliceGetCurrent();
  return QVTMachOFileInitWithPath(file, QVTMachOSliceGetExecutablePath(&current));
}

void QVTMachOFileDestroy(QVTMachOFile* file) {
  if (!file) return;
  if (file->mappedFile && file->mappedSize) {
    forgetMapping(file->mappedFile);
    ::munmap(const_cast<void*>(file->mappedFile), static_cast<std::size_t>(file->mappedSize));
  }
  ::close(file->fd);
  *file = {};
}

void QVTMachOFileEnumerateSlices(const QVTMachOFile* file, const SliceCallback& callback) {
  if (file) QVTMachOEnumerateSlicesAtAddress(file->mappedFile, callback);
}

void QVTMachOEnumerateSlicesAtAddress(const void* address, const SliceCallback& callback) {
  if (!address || !callback) return;
  const Reach reach(address);
  const auto magic = reach.read<std::uint32_t>(address);
  if (magic && (*magic == FAT_MAGIC || *magic == FAT_CIGAM)) {
    enumerateUniversal(address, reach, callback);
    return;
  }
  QVTMachOSlice slice{address};
  QVTMachOHeaderValues(&slice, nullptr, nullptr);
  callback(&slice);
}

QVTMachOSlice QVTMachOFileSliceWithArchitectureName(const QVTMachOFile* file, const char* name) {
  QVTMachOSlice found;
  if (!name) return found;
  QVTMachOFileEnumerateSlices(file, [&](const QVTMachOSlice* slice) {
    if (std::strcmp(QVTMachOSliceGetArchitectureName(slice), name) == 0) found = *slice;
  });
  return found;
}

}  // namespace macho

#include "macho/MachOFile.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

#include "macho/MachOSlice.h"
#include "macho/core/Definitions.h"
#include "macho/core/FatTable.h"
#include "macho/private/Mappings.h"

namespace macho {
namespace {

constexpr std::size_t kSmallestFile = 16;

void enumerateUniversal(const FatTable& table, foundation::Bytes bytes,
                        const SliceCallback& callback) {
  for (std::uint32_t index = 0; index < table.count(); ++index) {
    const auto entry = table.entry(index);
    if (!entry) return;
    const bool isInside = entry->offset < bytes.size();
    const QVTMachOSlice slice{isInside ? bytes.data() + entry->offset : nullptr, entry->cpuType,
                              static_cast<std::int32_t>(entry->cpuSubtype)};
    callback(&slice);
  }
}

}  // namespace

bool QVTMachOFileInitWithPath(QVTMachOFile* file, const char* path) {
  if (!file || !path) return false;
  *file = {};
  foundation::FileDescriptor descriptor;
  auto mapped = foundation::MappedFile::open(path, descriptor);
  if (!mapped) {
    errno = static_cast<int>(mapped.error().code);
    return false;
  }
  const foundation::Bytes bytes = mapped->bytes();
  if (bytes.size() < kSmallestFile) return false;
  // Only headers and load commands are read, each once: reading ahead would fetch megabytes that
  // nobody asks for.
  ::madvise(const_cast<std::byte*>(bytes.data()), bytes.size(), MADV_RANDOM);
  *file = {descriptor.release(), bytes.size(), bytes.data()};
  rememberMapping(std::move(*mapped));
  return true;
}

bool QVTMachOFileInitWithCurrent(QVTMachOFile* file) {
  const QVTMachOSlice current = QVTMachOSliceGetCurrent();
  return QVTMachOFileInitWithPath(file, QVTMachOSliceGetExecutablePath(&current));
}

void QVTMachOFileDestroy(QVTMachOFile* file) {
  if (!file) return;
  forgetMapping(file->mappedFile);
  ::close(file->fd);
  *file = {};
}

void QVTMachOFileEnumerateSlices(const QVTMachOFile* file, const SliceCallback& callback) {
  if (file) QVTMachOEnumerateSlicesAtAddress(file->mappedFile, callback);
}

void QVTMachOEnumerateSlicesAtAddress(const void* address, const SliceCallback& callback) {
  if (!address || !callback) return;
  const foundation::Bytes bytes = readableFrom(address);
  const auto magic = foundation::readAt<std::uint32_t>(bytes, 0);
  if (magic && (*magic == FAT_MAGIC || *magic == FAT_CIGAM)) {
    enumerateUniversal(FatTable(bytes), bytes, callback);
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

#include "foundation/file/MappedFile.h"

#include <cerrno>
#include <limits>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace foundation {

Result<MappedFile> MappedFile::open(const std::filesystem::path& path, Links links) {
  FileDescriptor file;
  return open(path, file, links);
}

Result<MappedFile> MappedFile::open(const std::filesystem::path& path, FileDescriptor& file,
                                    Links links) {
  // Without O_NONBLOCK, opening a pipe would wait for a writer.
  file = openFile(path, O_RDONLY | O_NONBLOCK, links);
  if (!file) return fileError(errno, "open", path);
  struct stat details {};
  if (::fstat(file.get(), &details) != 0) return fileError(errno, "examine", path);
  if (!S_ISREG(details.st_mode)) {
    return fileError(S_ISDIR(details.st_mode) ? EISDIR : EINVAL, "map", path);
  }
  MappedFile mapped;
  if (details.st_size == 0) return Result<MappedFile>(std::move(mapped));
  if (static_cast<std::uintmax_t>(details.st_size) > std::numeric_limits<std::size_t>::max()) {
    return fileError(EFBIG, "map", path);
  }
  const auto size = static_cast<std::size_t>(details.st_size);
  void* const address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
  if (address == MAP_FAILED) return fileError(errno, "map", path);
  mapped.bytes_ = {static_cast<const std::byte*>(address), size};
  mapped.guard_ = MappingGuard(mapped.bytes_, path);
  return Result<MappedFile>(std::move(mapped));
}

MappedFile::MappedFile(MappedFile&& other) noexcept
    : bytes_(std::exchange(other.bytes_, {})), guard_(std::move(other.guard_)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  std::swap(bytes_, other.bytes_);
  std::swap(guard_, other.guard_);
  return *this;
}

MappedFile::~MappedFile() {
  guard_ = {};
  if (!bytes_.empty()) ::munmap(const_cast<std::byte*>(bytes_.data()), bytes_.size());
}

}  // namespace foundation

#include "foundation/base/WriteAll.h"

#include <cerrno>

#include <unistd.h>

namespace foundation {

namespace {

template <class Write>
int repeat(Bytes bytes, Write write) {
  while (!bytes.empty()) {
    const ssize_t count = write(bytes);
    if (count > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    } else if (count == 0) {
      return EIO;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

int writeAll(int descriptor, Bytes bytes) {
  return repeat(bytes, [&](Bytes left) { return ::write(descriptor, left.data(), left.size()); });
}

int writeAllAt(int file, std::uint64_t offset, Bytes bytes) {
  const std::uint64_t end = offset + bytes.size();
  return repeat(bytes, [&](Bytes left) {
    return ::pwrite(file, left.data(), left.size(), static_cast<off_t>(end - left.size()));
  });
}

}  // namespace foundation

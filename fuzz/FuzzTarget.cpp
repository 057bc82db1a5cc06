#include "fuzz/FuzzTarget.h"

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::readInput({reinterpret_cast<const std::byte*>(data), size});
  return 0;
}

namespace fuzz {

MemoryFile::MemoryFile(foundation::Bytes bytes)
    : file_(::memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(file_.get())) {
  require(static_cast<bool>(file_));
  require(::write(file_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
}

}  // namespace fuzz

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/FuzzTarget.h"

namespace fuzz {

MemoryFile::MemoryFile(foundation::Bytes bytes)
    : file_(::memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(file_.get())) {
  require(static_cast<bool>(file_));
  require(::write(file_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
}

}  // namespace fuzz

#include "fuzz/Reader.h"

#include <map>

#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {
namespace {

std::map<std::string, Reader>& readers() {
  static std::map<std::string, Reader> all;
  return all;
}

}  // namespace

Registration::Registration(const char* name, Reader reader) { readers().emplace(name, reader); }

Reader readerNamed(const char* name) {
  require(name && readers().contains(name));
  return readers().at(name);
}

MemoryFile::MemoryFile(foundation::Bytes bytes)
    : file_(::memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(file_.get())) {
  require(static_cast<bool>(file_));
  require(::write(file_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
}

}  // namespace fuzz

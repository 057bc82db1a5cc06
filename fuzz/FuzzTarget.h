#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"

/// Each file of this folder defines it: one run of a reader on untrusted bytes, called by a fuzzer
/// or with saved inputs by a test. When the reader fails, the process ends with a report; its
/// results are mostly ignored.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

inline foundation::Bytes bytesOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const std::byte*>(data), size};
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return foundation::textOf(bytesOf(data, size));
}

/// Ends the process unless the promise holds. Not `assert`, which some builds leave out.
inline void require(bool holds) {
  if (!holds) __builtin_trap();
}

/// For results that are computed only to see whether that crashes.
template <class... Results>
void ignore(const Results&...) {}

/// A file in memory, for readers that take a path.
class MemoryFile {
 public:
  explicit MemoryFile(foundation::Bytes bytes);
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  foundation::FileDescriptor file_;
  std::string path_;
};

}  // namespace fuzz

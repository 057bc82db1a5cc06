#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"

/// What each file of this folder defines: one run of a reader over foreign bytes. A fuzzer calls it
/// with bytes that it makes up, a test with those that are kept. The process ends with a report
/// when the reader goes wrong; what it answers is mostly not looked at.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

inline foundation::Bytes bytesOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const std::byte*>(data), size};
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return foundation::textOf(bytesOf(data, size));
}

/// Ends the process unless the reader keeps its promise. Not `assert`, which some builds leave out.
inline void require(bool holds) {
  if (!holds) __builtin_trap();
}

/// Takes answers that are only asked for to see that asking does no harm.
template <class... Answers>
void ignore(const Answers&...) {}

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

#pragma once

#include <string>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"

namespace fuzz {

/// One run of a reader on untrusted bytes, called by a fuzzer or with saved inputs by a test. When
/// the reader fails, the process ends with a report; its results are mostly ignored.
using Reader = void (*)(foundation::Bytes input);

/// Makes a reader known by the name of its folder in corpus/.
struct Registration {
  Registration(const char* name, Reader reader);
};

/// Ends the process where nobody has the name.
Reader readerNamed(const char* name);

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

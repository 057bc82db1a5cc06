#pragma once

#include <cstdint>

#include "foundation/base/Bytes.h"

namespace foundation {

/// Writes all bytes to a blocking descriptor, however many calls that takes and whatever signals
/// interrupt it. Returns 0, or the errno value of the call that failed; some of the bytes may have
/// been written by then. Safe in a signal handler.
int writeAll(int descriptor, Bytes bytes);
inline int writeAll(int descriptor, std::string_view text) {
  return writeAll(descriptor, bytesOf(text));
}
/// The same at a position of a file; the file's own position stays.
int writeAllAt(int file, std::uint64_t offset, Bytes bytes);

}  // namespace foundation

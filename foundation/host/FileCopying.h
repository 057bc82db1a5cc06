#pragma once

#include <cstdint>

namespace foundation {

/// Copies bytes between two open files without passing them through this process, sharing blocks
/// where the file system can. Returns the number copied, from the start of the range. If that is
/// less than `size`, either writing failed (a full disk, say), with the errno value in `error`; or
/// `error` is 0 and the system cannot copy between these files, so the caller must copy the rest.
std::uint64_t copyRange(int source, std::uint64_t from, int target, std::uint64_t to,
                        std::uint64_t size, int& error);

/// Starts writing this range to disk without waiting for it, so that a later flush has less to do.
void beginFlush(int file, std::uint64_t offset, std::uint64_t size);

}  // namespace foundation

#pragma once

#include <cstdint>

/// Content on its way from one open file to another.
namespace foundation {

/// Lets the system copy bytes between two files, which it shares between them where the file system
/// can. Returns how many it took, from the start of the range: fewer than `size`, perhaps none,
/// where it cannot copy between these files, and the caller has to write the rest. `error` is the
/// system's number when writing failed (a full disk, say), else 0.
std::uint64_t copyRange(int source, std::uint64_t from, int target, std::uint64_t to,
                        std::uint64_t size, int& error);

/// Asks for what was written in this range to go to its medium from now on, and does not wait for
/// it: a later flush has less to do.
void beginFlush(int file, std::uint64_t offset, std::uint64_t size);

}  // namespace foundation

#pragma once

#include <cstdint>
#include <functional>

/// Thin and universal Mach-O files, read in place: a file and its slices, one per architecture.
///
/// Functions that are given an address inside an open file never read past the end of that file,
/// whatever its bytes say. Any other memory (an image of the running process, say) has no known
/// end: its bytes are trusted.
///
/// Any number of threads may read a file; opening and destroying it needs one thread at a time.
namespace macho {

/// Destroy it with `QVTMachOFileDestroy`, even if opening failed.
struct QVTMachOFile {
  std::int32_t fd = -1;              ///< stays open while the mapping lives
  std::uint64_t mappedSize = 0;      ///< bytes of the file at opening, and of the mapping
  const void* mappedFile = nullptr;  ///< read-only; null when nothing is mapped
};

/// One architecture. A value; valid while its file stays mapped.
struct QVTMachOSlice {
  const void* startAddress = nullptr;  ///< first byte of the mach_header
  std::int32_t cputype = 0;
  std::int32_t cpusubtype = 0;  ///< capability bits included
};

/// The record lives only for the call.
using SliceCallback = std::function<void(const QVTMachOSlice* slice)>;

/// Opens and maps a regular file of at least 16 bytes, Mach-O or not. False otherwise; `errno` says
/// why if the system refused it.
bool QVTMachOFileInitWithPath(QVTMachOFile* file, const char* path);
/// The same for the running program; false if that is not a Mach-O image.
bool QVTMachOFileInitWithCurrent(QVTMachOFile* file);
/// Unmaps, closes and empties the record. Null is ignored.
void QVTMachOFileDestroy(QVTMachOFile* file);

/// Calls back for every slice in file order. The types of a universal file's slices come from its
/// table, not from their headers. A slice outside the file has a null start address.
void QVTMachOFileEnumerateSlices(const QVTMachOFile* file, const SliceCallback& callback);
/// Anything but a universal file is one thin slice; if it is not Mach-O at all, its types are 0.
void QVTMachOEnumerateSlicesAtAddress(const void* address, const SliceCallback& callback);

/// The last slice with exactly this name; an invalid record if there is none.
QVTMachOSlice QVTMachOFileSliceWithArchitectureName(const QVTMachOFile* file, const char* name);

}  // namespace macho

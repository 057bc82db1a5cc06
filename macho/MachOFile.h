#pragma once

#include <cstdint>
#include <functional>

/// Reading of thin and universal Mach-O files in place: opening and mapping, and the slices that a
/// file holds, one per architecture.
///
/// A mapping that `QVTMachOFileInitWithPath` made is known by its address until it is destroyed.
/// Every function of this library that is given an address inside a known mapping reads nothing
/// beyond that mapping's end, whatever the file says. Memory that is in no known mapping (an image
/// of the running process) has no end that could be checked: its bytes are trusted.
///
/// Reading is safe from several threads; opening and destroying one record is not.
namespace macho {

/// An open file. Owned by the caller; destroy it with `QVTMachOFileDestroy`.
struct QVTMachOFile {
  std::int32_t fd = -1;              ///< stays open while the mapping lives
  std::uint64_t mappedSize = 0;      ///< bytes of the file at opening, and of the mapping
  const void* mappedFile = nullptr;  ///< read-only; null when nothing is mapped
};

/// One architecture. A value, valid as long as its file stays mapped.
struct QVTMachOSlice {
  const void* startAddress = nullptr;  ///< first byte of the mach_header
  std::int32_t cputype = 0;
  std::int32_t cpusubtype = 0;  ///< capability bits included
};

/// The record lives only for the call.
using SliceCallback = std::function<void(const QVTMachOSlice* slice)>;

/// Opens and maps a regular file of 16 bytes or more; whether it is Mach-O is not asked. False
/// otherwise, with `errno` as the failing call left it; the record can be destroyed in any case.
bool QVTMachOFileInitWithPath(QVTMachOFile* file, const char* path);
/// The same for the running program; false where that is no Mach-O image.
bool QVTMachOFileInitWithCurrent(QVTMachOFile* file);
/// Unmaps, closes and empties the record. Null is ignored.
void QVTMachOFileDestroy(QVTMachOFile* file);

/// Every slice in file order. Types of a universal file's slices are those of its own table, not of
/// the headers inside. A slice that lies outside the file is reported with a null start address.
void QVTMachOFileEnumerateSlices(const QVTMachOFile* file, const SliceCallback& callback);
/// The same for bytes in memory. Bytes that are no universal file are one thin slice, also when
/// they are not Mach-O at all; its types are then 0.
void QVTMachOEnumerateSlicesAtAddress(const void* address, const SliceCallback& callback);

/// The last slice of this name, compared exactly; an invalid record when there is none.
QVTMachOSlice QVTMachOFileSliceWithArchitectureName(const QVTMachOFile* file, const char* name);

}  // namespace macho

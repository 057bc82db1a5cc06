#pragma once

#include <cstdint>
#include <functional>

#include "macho/MachOFile.h"

/// One slice: its header, load commands, segments and sections. Fields are read in the host's byte
/// order; headers of the other byte order are accepted and their fields taken as they stand.
namespace macho {

/// Where a section lies. All zero when it was not found.
struct QVTMachOSection {
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint64_t offset = 0;  ///< in bytes from the slice's header
};

/// `command` points at `cmd`; it may be misaligned, and only its first 8 bytes are known to be
/// there. The decoders of MachOCommands.h check what they read.
using LoadCommandCallback =
    std::function<void(std::uint32_t cmd, std::uint32_t cmdsize, const void* command)>;

/// The running program's own image; invalid where that is no Mach-O image.
QVTMachOSlice QVTMachOSliceGetCurrent();
/// The file that an image of the running process was loaded from; null for anything else.
const char* QVTMachOSliceGetExecutablePath(const QVTMachOSlice* slice);
/// A record for the header at this address; the types stay 0. A header in no mapping of this
/// library is trusted.
QVTMachOSlice QVTMachOSliceWithHeader(const void* header);

/// True when there is a start address; this says nothing about the bytes.
bool QVTMachOSliceIsValid(const QVTMachOSlice* slice);
bool QVTMachOSliceIs64Bit(const QVTMachOSlice* slice);

/// Reads the header: fills in the slice's types, and gives the first load command and the number of
/// commands that the header claims. Both outputs are optional; they are cleared (and the slice left
/// as it was) when there is no known magic, and cleared when the file ends within the header.
void QVTMachOHeaderValues(QVTMachOSlice* slice, const void** firstCommand,
                          std::uint32_t* commandCount);

/// The platform's name for the slice's types ("arm64", "armv7s"), "unknown" when it has none. Never
/// null; the text is a constant.
const char* QVTMachOSliceGetArchitectureName(const QVTMachOSlice* slice);

/// Every load command in order. Sizes are taken as found; the walk ends where it would leave the
/// file. One that stands still (a size of 0 repeats its command) ends after as many commands as the
/// larger of 65,536 and the file's size over 8.
void QVTMachOSliceEnumerateLoadCommands(const QVTMachOSlice* slice,
                                        const LoadCommandCallback& callback);

/// Finds a section by both its names. False, and zeros in the output, when there is none.
bool QVTMachOSliceInitSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                    const char* sectionName, QVTMachOSection* section);
/// The section's bytes. False, and null in the output, when there is no such section or the file
/// does not hold all of its bytes; a zero-filled one has none, its pointer is not for reading.
bool QVTMachOSliceGetSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                   const char* sectionName, const void** bytes);

/// Addresses of the two unwind sections of an image that is loaded in this process. An output
/// whose section is missing, and both for anything else than such an image, stay as they were.
void QVTMachOSliceGetUnwindInformation(const QVTMachOSlice* slice, std::uintptr_t* ehFrame,
                                       std::uintptr_t* unwindInfo);

}  // namespace macho

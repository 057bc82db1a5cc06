#pragma once

#include <cstdint>
#include <functional>

#include "macho/MachOFile.h"

/// One slice: its header, load commands and sections. Fields are read in the host's byte order,
/// even below a magic of the other byte order.
namespace macho {

/// All zero if the section was not found.
struct QVTMachOSection {
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint64_t offset = 0;  ///< in bytes from the slice's header
};

/// `command` may be misaligned, and only its first 8 bytes are known to lie inside the file. The
/// decoders in MachOCommands.h check what they read.
using LoadCommandCallback =
    std::function<void(std::uint32_t cmd, std::uint32_t cmdsize, const void* command)>;

/// The running program's own image; invalid if that is not Mach-O.
QVTMachOSlice QVTMachOSliceGetCurrent();
/// The file that an image of the running process was loaded from; null for anything else.
const char* QVTMachOSliceGetExecutablePath(const QVTMachOSlice* slice);
/// Does not read the header: the types stay 0.
QVTMachOSlice QVTMachOSliceWithHeader(const void* header);

/// True if there is a start address; says nothing about the bytes.
bool QVTMachOSliceIsValid(const QVTMachOSlice* slice);
bool QVTMachOSliceIs64Bit(const QVTMachOSlice* slice);

/// Copies the types from the header into the slice, and returns the first load command and the
/// claimed number of commands. Both outputs are optional. They are cleared if the file ends within
/// the header, and for an unknown magic, which also leaves the slice alone.
void QVTMachOHeaderValues(QVTMachOSlice* slice, const void** firstCommand,
                          std::uint32_t* commandCount);

/// The platform's name for the slice's types ("arm64", "armv7s"), or "unknown"; a constant.
const char* QVTMachOSliceGetArchitectureName(const QVTMachOSlice* slice);

/// Visits the load commands in order, trusting their sizes until the walk would leave the file. A
/// size of 0 repeats its command; such a walk ends after max(65,536, file size / 8) commands.
void QVTMachOSliceEnumerateLoadCommands(const QVTMachOSlice* slice,
                                        const LoadCommandCallback& callback);

/// False, with zeros in the output, if there is no such section.
bool QVTMachOSliceInitSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                    const char* sectionName, QVTMachOSection* section);
/// The section's bytes. False, with null in the output, if there is no such section or it runs past
/// the end of the file. A zero-filled section has no bytes: do not read through its pointer.
bool QVTMachOSliceGetSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                   const char* sectionName, const void** bytes);

/// Addresses of the unwind sections of an image loaded in this process. An output whose section is
/// missing is left alone, and so are both for a slice that is not such an image.
void QVTMachOSliceGetUnwindInformation(const QVTMachOSlice* slice, std::uintptr_t* ehFrame,
                                       std::uintptr_t* unwindInfo);

}  // namespace macho

#pragma once

#include <cstdint>
#include <optional>

#include "macho/MachOFile.h"

/// What only the host's dynamic loader knows about Mach-O images of the running process. Each
/// folder in host/ defines all of it.
namespace macho::host {

/// The running program's own image, with the types of the host's processor.
QVTMachOSlice currentImage();
/// The file of the loaded image around this address; null if there is none.
const char* pathOfImage(const void* address);
/// The slide of the loaded image with this header; absent if there is none.
std::optional<std::uintptr_t> slideOfImage(const void* header);

}  // namespace macho::host

#pragma once

#include <cstdint>
#include <optional>

#include "macho/MachOFile.h"

/// What only the host's dynamic loader can tell about Mach-O images of the running process. Every
/// folder below host/ defines all of it.
namespace macho::host {

/// The running program's own image, with the types of the processor that it runs on.
QVTMachOSlice currentImage();
/// The file of the loaded image that holds this address; null when there is none.
const char* pathOfImage(const void* address);
/// How far the image with this header was moved when it was loaded; absent when no image of this
/// process has it.
std::optional<std::uintptr_t> slideOfImage(const void* header);

}  // namespace macho::host

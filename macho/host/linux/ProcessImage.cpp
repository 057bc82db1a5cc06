#include "macho/private/ProcessImage.h"

// The loader of this host knows ELF only: no image of the process is Mach-O.
namespace macho::host {

QVTMachOSlice currentImage() { return {}; }

const char* pathOfImage(const void*) { return nullptr; }

std::optional<std::uintptr_t> slideOfImage(const void*) { return std::nullopt; }

}  // namespace macho::host

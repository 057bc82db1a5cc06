#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "macho/MachOFile.h"
#include "macho/Mappings.h"

namespace macho {

/// Most commands of a walk that stands still, and the measure of what any search through a hostile
/// file may cost: more commands than a file of this size can hold.
std::uint64_t commandLimit(const Reach& reach);

/// `QVTMachOSliceEnumerateLoadCommands` for a visitor that can end the walk by answering false.
void walkLoadCommands(const QVTMachOSlice& slice,
                      const std::function<bool(std::uint32_t, std::uint32_t, const void*)>& visit);

/// Most bytes of library paths that are collected from one file.
std::uint64_t textLimit(const Reach& reach);

/// `QVTMachOGetDylibPath` that looks at no more than `textLeft` bytes, and lessens it by those that
/// it looked at. Absent when the path does not end inside the file or within them.
std::optional<std::string_view> dylibPath(const void* command, std::uint64_t& textLeft);

}  // namespace macho

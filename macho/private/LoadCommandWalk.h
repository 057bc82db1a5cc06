#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "macho/MachOFile.h"

namespace macho {

/// More commands than the file around `address` can hold: the most that a walk which does not
/// advance, or a search through sections, may visit.
std::uint64_t commandLimit(const void* address);

/// `QVTMachOSliceEnumerateLoadCommands` for a visitor that can end the walk by returning false.
void walkLoadCommands(const QVTMachOSlice& slice,
                      const std::function<bool(std::uint32_t, std::uint32_t, const void*)>& visit);

/// `QVTMachOGetDylibPath` that reads at most `textLeft` bytes and subtracts those that it read.
/// Also absent when the path is longer.
std::optional<std::string_view> dylibPath(const void* command, std::uint64_t& textLeft);

}  // namespace macho

#pragma once

#include <cstdint>
#include <string_view>

namespace macho {

/// A processor that the platform has a name for.
struct Architecture {
  std::int32_t cpuType;
  std::uint32_t cpuSubtype;  ///< without capability bits
  const char* name;
};

/// The row of these numbers, whatever the subtype's capability bits; null without one.
const Architecture* architectureOf(std::int32_t cpuType, std::uint32_t cpuSubtype);
/// The row of this name ("arm64"); null without one.
const Architecture* architectureNamed(std::string_view name);

}  // namespace macho

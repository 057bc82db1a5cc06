#pragma once

#include <cstdint>
#include <string_view>

namespace macho {

/// A processor type that the platform has a name for.
struct Architecture {
  std::int32_t cpuType;
  std::uint32_t cpuSubtype;  ///< without capability bits
  const char* name;
};

/// Capability bits of the subtype do not count. Null if the platform has no name for it.
const Architecture* architectureOf(std::int32_t cpuType, std::uint32_t cpuSubtype);
/// `name`: "arm64". Null if unknown.
const Architecture* architectureNamed(std::string_view name);

}  // namespace macho

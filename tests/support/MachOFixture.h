#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "macho/core/Definitions.h"

namespace test {

// Mach-O files built in memory, so that each part can be as malformed as a test needs. Nothing is
// checked.

/// The numbers' bytes in the host's order.
std::string words(const std::vector<std::uint32_t>& values);
/// The bytes with another number at this offset.
std::string poked(std::string bytes, std::size_t offset, std::uint32_t value);

/// A load command: `cmd`, its size, and what follows.
std::string command(std::uint32_t cmd, const std::vector<std::uint32_t>& numbers,
                    std::string_view bytes = {});
/// 32 hexadecimal digits.
std::string uuidCommand(std::string_view hex);
std::string dylibCommand(std::string_view path, std::uint32_t cmd = macho::LC_LOAD_DYLIB);

struct MachOSection {
  std::string name;
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint32_t offset = 0;
  std::uint32_t flags = 0;
};
/// These bytes of the file, at address 0x10000 + `offset` in twice as much memory.
std::string segmentCommand(std::string_view name, std::uint64_t offset, std::uint64_t size,
                           const std::vector<MachOSection>& sections = {}, bool is64Bit = true);

struct Processor {
  std::int32_t type;
  std::int32_t subtype;
};
inline constexpr Processor kARM64{macho::CPU_TYPE_ARM64, macho::CPU_SUBTYPE_ARM64_ALL};
inline constexpr Processor kARMv7{macho::CPU_TYPE_ARM, macho::CPU_SUBTYPE_ARM_V7};

/// The header for these commands, and they.
std::string machO(const std::vector<std::string>& commands, Processor processor = kARM64);

/// A slice of a universal file; by default for the processor of its own header, and where it is.
struct FatSlice {
  std::string bytes;
  std::optional<Processor> processor = std::nullopt;
  std::optional<std::uint32_t> offset = std::nullopt;
};
/// Each image lies on a boundary of 2^`alignment` bytes. `count` overrides the actual one.
std::string universalFile(const std::vector<FatSlice>& slices, std::uint32_t alignment = 4,
                          std::optional<std::uint32_t> count = std::nullopt);

// Real files

/// Path of one of LLVM's programs ("llvm-otool").
std::string llvmTool(const std::string& name);

/// Compiles and links an executable for iOS 9, or what the options for ld64.lld ask for.
void linkImage(const std::filesystem::path& target, const std::string& architecture = "arm64",
               const std::vector<std::string>& linkerOptions = {});

}  // namespace test

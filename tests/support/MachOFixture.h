#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "macho/core/Definitions.h"

namespace test {

/// The numbers' bytes in the host's order.
std::string words(const std::vector<std::uint32_t>& values);
/// The bytes with another number at this offset.
std::string poked(std::string bytes, std::size_t offset, std::uint32_t value);

struct MachOSection {
  std::string name;
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint32_t offset = 0;
  std::uint32_t flags = 0;
};

/// A thin Mach-O image, built in memory command by command, so that each part can be as malformed
/// as a test needs. Nothing is checked.
class MachOImage {
 public:
  /// 64-bit header and segments when `cpuType` has the 64-bit ABI bit.
  MachOImage(std::int32_t cpuType, std::int32_t cpuSubtype)
      : cpuType_(cpuType), cpuSubtype_(cpuSubtype) {}
  static MachOImage arm64() { return {macho::CPU_TYPE_ARM64, macho::CPU_SUBTYPE_ARM64_ALL}; }
  static MachOImage armv7() { return {macho::CPU_TYPE_ARM, macho::CPU_SUBTYPE_ARM_V7}; }

  /// A command's bytes as is, including `cmd` and `cmdsize`.
  MachOImage& command(std::string bytes);
  /// A whole command: what follows `cmd` and `cmdsize`.
  MachOImage& command(std::uint32_t cmd, const std::vector<std::uint32_t>& numbers,
                      std::string_view bytes = {});
  /// 32 hexadecimal digits.
  MachOImage& uuid(std::string_view hex);
  MachOImage& dylib(std::string_view path, std::uint32_t cmd = macho::LC_LOAD_DYLIB);
  /// These bytes of the file, at address 0x10000 + `offset` in twice as much memory.
  MachOImage& segment(std::string_view name, std::uint64_t offset, std::uint64_t size,
                      const std::vector<MachOSection>& sections = {});
  /// LC_CODE_SIGNATURE.
  MachOImage& signature(std::uint32_t offset, std::uint32_t size);
  /// After the commands: these bytes at this offset, with zeros before them.
  MachOImage& content(std::size_t offset, std::string bytes = {});

  [[nodiscard]] std::int32_t cpuType() const { return cpuType_; }
  [[nodiscard]] std::int32_t cpuSubtype() const { return cpuSubtype_; }
  [[nodiscard]] std::string bytes() const;

 private:
  [[nodiscard]] bool is64Bit() const { return (cpuType_ & macho::CPU_ARCH_ABI64) != 0; }

  std::int32_t cpuType_;
  std::int32_t cpuSubtype_;
  std::vector<std::string> commands_;
  std::vector<std::pair<std::size_t, std::string>> contents_;
};

/// One record of a universal file. `offset` overrides the actual one.
struct FatSlice {
  std::int32_t cpuType = 0;
  std::int32_t cpuSubtype = 0;
  std::string bytes;
  std::optional<std::uint32_t> offset = std::nullopt;

  static FatSlice of(const MachOImage& image) {
    return {image.cpuType(), image.cpuSubtype(), image.bytes()};
  }
};

/// A universal file, each image on a boundary of 2^`alignment` bytes. `count` overrides the actual
/// one.
std::string universalFile(const std::vector<FatSlice>& slices, std::uint32_t alignment = 4,
                          std::optional<std::uint32_t> count = std::nullopt);

/// Path of one of LLVM's programs ("llvm-otool").
std::string llvmTool(const std::string& name);

/// Compiles and links a real executable for iOS 9, or what the options for ld64.lld ask for.
void linkImage(const std::filesystem::path& target, const std::string& architecture = "arm64",
               const std::vector<std::string>& linkerOptions = {});

}  // namespace test

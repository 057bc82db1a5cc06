#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "macho/core/Definitions.h"
#include "tests/support/OtherProcess.h"

namespace test {

/// One section of a built segment. Its bytes follow the load commands of the image, unless it has
/// an offset: then they only give its size.
struct MachOSectionSpec {
  std::string name;
  std::string bytes;
  std::uint64_t address = 0;
  std::uint32_t flags = 0;
  std::optional<std::uint32_t> offset = std::nullopt;
};

/// A thin Mach-O image, built in memory command by command, so that each part can be as malformed
/// as a test needs. Nothing is checked.
class MachOImage {
 public:
  /// 64-bit header and segments when `cpuType` has the 64-bit ABI bit.
  MachOImage(std::int32_t cpuType, std::int32_t cpuSubtype,
             std::uint32_t fileType = macho::MH_EXECUTE);
  static MachOImage arm64() { return {macho::CPU_TYPE_ARM64, macho::CPU_SUBTYPE_ARM64_ALL}; }
  static MachOImage armv7() { return {macho::CPU_TYPE_ARM, macho::CPU_SUBTYPE_ARM_V7}; }

  /// 32 hexadecimal digits.
  MachOImage& uuid(std::string_view hex);
  MachOImage& versionMin(std::uint32_t command, std::uint32_t version, std::uint32_t sdk);
  MachOImage& buildVersion(std::uint32_t platform, std::uint32_t minimum, std::uint32_t sdk);
  MachOImage& dylib(std::string_view path, std::uint32_t command = macho::LC_LOAD_DYLIB);
  MachOImage& encryption(std::uint32_t cryptid);
  MachOImage& segment(std::string_view name, std::uint64_t address, std::uint64_t size,
                      std::vector<MachOSectionSpec> sections = {});
  /// A segment that takes up these bytes of the file, at address 0.
  MachOImage& fileSegment(std::string_view name, std::uint64_t offset, std::uint64_t size,
                          std::vector<MachOSectionSpec> sections = {});
  /// LC_CODE_SIGNATURE.
  MachOImage& signature(std::uint64_t offset, std::uint64_t size);
  /// A command's bytes as is, including `cmd` and `cmdsize`.
  MachOImage& command(std::string bytes);
  /// Only `cmd` and `cmdsize`.
  MachOImage& bareCommand(std::uint32_t cmd, std::uint32_t cmdsize);

  MachOImage& magic(std::uint32_t value);
  /// Overrides the count in the header.
  MachOImage& commandCount(std::uint32_t count);
  /// Zeros at the end make the image this long.
  MachOImage& paddedTo(std::size_t size);

  [[nodiscard]] std::int32_t cpuType() const { return cpuType_; }
  [[nodiscard]] std::int32_t cpuSubtype() const { return cpuSubtype_; }
  [[nodiscard]] std::string bytes() const;

 private:
  struct Segment {
    std::size_t command;
    std::vector<MachOSectionSpec> sections;
  };
  MachOImage& addSegment(const macho::segment_command_64& segment,
                         std::vector<MachOSectionSpec> sections);
  [[nodiscard]] bool is64Bit() const { return (cpuType_ & macho::CPU_ARCH_ABI64) != 0; }
  [[nodiscard]] std::size_t headerSize() const { return is64Bit() ? 32 : 28; }
  void appendSections(std::string& out) const;

  std::int32_t cpuType_;
  std::int32_t cpuSubtype_;
  std::uint32_t fileType_;
  std::optional<std::uint32_t> magic_;
  std::optional<std::uint32_t> count_;
  std::size_t leastSize_ = 0;
  std::vector<std::string> commands_;
  std::vector<Segment> segments_;
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

/// The value's bytes in the host's order.
std::string word(std::uint32_t value);
void poke(std::string& bytes, std::size_t offset, std::uint32_t value);

// Real files, made by clang, ld64.lld, llvm-lipo and dsymutil

/// Path of one of LLVM's programs ("llvm-otool"), below `llvm-config --bindir`.
std::string llvmTool(std::string_view name);

struct RealImageOptions {
  std::string architecture = "arm64";  ///< also "armv7", "x86_64", "arm64_32"
  std::string platform = "ios";        ///< ld64's name: "ios", "watchos", "ios-simulator"
  std::string minimumOS = "9.0";       ///< below 12.0 gives a version-min command
  std::string sdk = "12.1";
  std::string source = "int main(void) { return 0; }\n";
  std::vector<std::string> dylibs = {};  ///< install names to link with (stubs are created)
  std::vector<std::string> compilerArguments = {};
  std::vector<std::string> linkerArguments = {};
};

/// Compiles and links an executable (or what the linker arguments ask for) at `target`. Object
/// and source files stay beside it, so that `makeDSYM` finds the debug map's objects.
void linkImage(const std::filesystem::path& target, const RealImageOptions& options = {});

/// Joins thin files into a universal one.
void lipo(const std::filesystem::path& target, const std::vector<std::filesystem::path>& thin);

/// The debug-symbol bundle of an executable that was compiled with "-g".
void makeDSYM(const std::filesystem::path& executable, const std::filesystem::path& bundle);

}  // namespace test

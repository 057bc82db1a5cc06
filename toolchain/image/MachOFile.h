#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "toolchain/common/Messages.h"

/// Mach-O files as a signer sees them. Format: mach-o/loader.h and mach-o/fat.h in Apple's open
/// xnu sources.
namespace toolchain {

/// A window of bytes; of the file or of a slice, as each use says.
struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// Platform numbers of LC_BUILD_VERSION; the older LC_VERSION_MIN_* commands are mapped to them.
enum class Platform : std::uint32_t {
  unknown = 0,
  macOS = 1,
  iOS = 2,
  tvOS = 3,
  watchOS = 4,
  macCatalyst = 6,
  iOSSimulator = 7,
  tvOSSimulator = 8,
  watchOSSimulator = 9,
  visionOS = 11,
  visionOSSimulator = 12,
};

/// A segment as its load command describes it; `file` counts from the slice's start.
struct Segment {
  std::string name;
  std::uint64_t commandOffset = 0;
  Extent file;
  std::uint64_t memorySize = 0;
};

/// LC_CODE_SIGNATURE: where the command lies and what it points to, both from the slice's start.
struct SignatureCommand {
  std::uint64_t commandOffset = 0;
  Extent data;
};

/// One architecture of a file. Everything in it was checked against the file's size.
struct Slice {
  /// Where the slice lies in the file; the whole file for a thin one.
  Extent file;
  /// "arm64", "armv7", ...; "cputype C subtype S" for one without a name.
  std::string architecture;
  std::uint32_t cpuType = 0;
  /// As in the file, capability bits included.
  std::uint32_t cpuSubtype = 0;
  std::uint32_t fileType = 0;
  bool is64Bit = false;
  std::uint32_t headerSize = 0;
  std::uint32_t commandsSize = 0;
  std::optional<SignatureCommand> signature;
  /// In the order of their load commands.
  std::vector<Segment> segments;
  std::optional<Segment> text;
  std::optional<Segment> linkEdit;
  /// Lowest file offset of a section with content in the segment that starts at file offset 0; the
  /// end of that segment when there is none. Load commands can grow up to here.
  std::uint64_t lowestSectionOffset = 0;
  /// Largest end of any segment but __LINKEDIT.
  std::uint64_t endOfOtherSegments = 0;
  Platform platform = Platform::unknown;
  /// 0xMMMMmmpp; absent without a command that names it.
  std::optional<std::uint32_t> minimumOS;
  /// Not 0: part of the slice is encrypted.
  std::uint32_t cryptIdentifier = 0;
  /// Content of __TEXT,__info_plist, counted from the slice's start.
  std::optional<Extent> embeddedInfoPlist;
  /// The string table's end, counted from the slice's start; absent without a symbol table.
  std::optional<std::uint64_t> stringTableEnd;

  [[nodiscard]] bool isMainExecutable() const;
  [[nodiscard]] std::uint64_t endOfCommands() const {
    return headerSize + std::uint64_t{commandsSize};
  }
};

/// A thin or universal file, read once; refers to the caller's bytes, which must outlive it.
class MachOFile {
 public:
  /// Accepts MH_EXECUTE, MH_DYLIB, MH_BUNDLE, MH_DYLINKER and MH_KEXT_BUNDLE in little-endian
  /// slices. Every refusal says where, what and which value, beginning with the slice's name for a
  /// universal file; it does not name the file.
  static Result<MachOFile> parse(Bytes file);

  [[nodiscard]] Bytes file() const { return file_; }
  [[nodiscard]] bool isUniversal() const { return tableEnd_ != 0; }
  /// Bytes of a universal file's header and table of slices; 0 for a thin file.
  [[nodiscard]] std::uint64_t tableEnd() const { return tableEnd_; }
  [[nodiscard]] const std::vector<Slice>& slices() const { return slices_; }
  [[nodiscard]] Bytes bytesOf(const Slice& slice) const {
    return file_.subspan(slice.file.offset, slice.file.size);
  }
  /// The whole area that LC_CODE_SIGNATURE points to; empty for an unsigned slice.
  [[nodiscard]] Bytes signatureArea(const Slice& slice) const;
  /// True when any slice has LC_CODE_SIGNATURE.
  [[nodiscard]] bool isSigned() const;

 private:
  Bytes file_;
  std::uint64_t tableEnd_ = 0;
  std::vector<Slice> slices_;
};

/// True for the first bytes of a thin or universal Mach-O file; tells a Java class, which shares
/// the universal magic, by its count of slices.
bool looksLikeMachO(Bytes start);

/// "arm64" and the like; compares subtypes without their capability bits.
std::string architectureName(std::uint32_t cpuType, std::uint32_t cpuSubtype);

}  // namespace toolchain

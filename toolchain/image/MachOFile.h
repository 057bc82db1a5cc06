#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "toolchain/common/Messages.h"

/// Mach-O files as a signer sees them: nothing is taken from a file that has not been checked.
namespace toolchain {

/// A range of bytes, of the file or of a slice.
struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// As in LC_BUILD_VERSION; each LC_VERSION_MIN_* command stands for one of them.
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

/// `file` counts from the start of the slice.
struct Segment {
  std::string name;
  std::uint64_t commandOffset = 0;
  Extent file;
};

/// LC_CODE_SIGNATURE; both offsets count from the start of the slice.
struct SignatureCommand {
  std::uint64_t commandOffset = 0;
  Extent data;
};

/// One architecture of a file. Every offset and size was checked against the size of the slice.
struct Slice {
  /// From the start of the file; all of a thin file.
  Extent file;
  /// As `architectureName`.
  std::string architecture;
  std::uint32_t cpuType = 0;
  /// Capability bits included.
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
  /// Load commands can grow up to here: the lowest section with content in the segment at file
  /// offset 0, or the end of that segment.
  std::uint64_t lowestSectionOffset = 0;
  /// The largest end of any segment except __LINKEDIT.
  std::uint64_t endOfOtherSegments = 0;
  Platform platform = Platform::unknown;
  /// 0xMMMMmmpp; absent if no command states it.
  std::optional<std::uint32_t> minimumOS;
  /// Anything but 0: part of the slice is encrypted.
  std::uint32_t cryptIdentifier = 0;
  /// The content of __TEXT,__info_plist, from the start of the slice.
  std::optional<Extent> embeddedInfoPlist;
  /// The end of the string table, from the start of the slice; absent without a symbol table.
  std::optional<std::uint64_t> stringTableEnd;

  [[nodiscard]] bool isMainExecutable() const;
  [[nodiscard]] std::uint64_t endOfCommands() const {
    return headerSize + std::uint64_t{commandsSize};
  }
};

/// A thin or universal file. Refers to the caller's bytes, which must outlive it.
class MachOFile {
 public:
  /// Accepts little-endian MH_EXECUTE, MH_DYLIB, MH_BUNDLE, MH_DYLINKER and MH_KEXT_BUNDLE. Errors
  /// name the slice of a universal file, but not the file.
  static Result<MachOFile> parse(Bytes file);

  [[nodiscard]] Bytes file() const { return file_; }
  [[nodiscard]] bool isUniversal() const { return tableEnd_ != 0; }
  /// Size of a universal file's header and table; 0 for a thin file.
  [[nodiscard]] std::uint64_t tableEnd() const { return tableEnd_; }
  [[nodiscard]] const std::vector<Slice>& slices() const { return slices_; }
  [[nodiscard]] Bytes bytesOf(const Slice& slice) const {
    return file_.subspan(slice.file.offset, slice.file.size);
  }
  /// What LC_CODE_SIGNATURE points to; empty for an unsigned slice.
  [[nodiscard]] Bytes signatureArea(const Slice& slice) const;
  /// The content of __TEXT,__info_plist; absent without it.
  [[nodiscard]] std::optional<Bytes> embeddedInfoPlist(const Slice& slice) const;

 private:
  Bytes file_;
  std::uint64_t tableEnd_ = 0;
  std::vector<Slice> slices_;
};

/// `start`: the first 8 bytes or more of a file. A Java class, which shares the universal magic, is
/// recognised by its impossible number of slices.
bool looksLikeMachO(Bytes start);

/// "arm64", ignoring capability bits; "cputype C subtype S" for an unnamed one.
std::string architectureName(std::uint32_t cpuType, std::uint32_t cpuSubtype);

}  // namespace toolchain

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "foundation/base/Bytes.h"
#include "macho/core/Definitions.h"

/// Header, load commands, segments and sections of one slice, given as the bytes from its header to
/// wherever reading has to stop. Everything is handed out as found and as far as those bytes go,
/// read in the host's byte order even below a magic of the other order; what is acceptable is for
/// the caller to decide.
namespace macho {

struct SliceHeader {
  mach_header fields;      ///< what both widths begin with; 0 where the bytes end earlier
  std::uint32_t size = 0;  ///< load commands begin here
  bool is64Bit = false;
};
/// Absent without the magic of a thin file, of either byte order.
std::optional<SliceHeader> headerOf(foundation::Bytes slice);

struct LoadCommand {
  std::uint32_t command = 0;
  std::uint64_t offset = 0;  ///< from the start of the slice
  std::uint32_t size = 0;    ///< as found: it may be 0, or run past anything
};

/// Visits the load commands of a slice in order.
class LoadCommandCursor {
 public:
  LoadCommandCursor(foundation::Bytes slice, const SliceHeader& header);

  /// Absent after as many commands as the header counts, and where no further one fits.
  std::optional<LoadCommand> next();
  /// Commands visited so far.
  [[nodiscard]] std::uint32_t index() const { return index_; }
  /// Where the next command is expected.
  [[nodiscard]] std::uint64_t offset() const { return offset_; }

 private:
  foundation::Bytes slice_;
  std::uint64_t offset_;
  std::uint32_t count_;
  std::uint32_t index_ = 0;
};

/// A name of at most 16 characters, padded with zeros.
using Name = std::array<char, 16>;
std::string_view textOf(const Name& name);

struct Section {
  Name segmentName;
  Name name;
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint64_t offset = 0;  ///< from the start of the slice
  std::uint32_t flags = 0;

  /// True when the section takes up no bytes in the file, whatever its offset and size.
  [[nodiscard]] bool isZeroFilled() const;
};

/// A segment command of either width.
struct SegmentCommand {
  Name name;
  std::uint64_t address = 0;
  std::uint64_t memorySize = 0;
  std::uint64_t fileOffset = 0;
  std::uint64_t fileSize = 0;
  std::uint32_t sectionCount = 0;  ///< as claimed
};
/// Bytes of a segment command without its sections, and of each section.
std::size_t segmentSize(std::uint32_t command);
std::size_t sectionSize(std::uint32_t command);

/// `bytes` begin with a segment command. Absent when they are too short for it, and for any other
/// command.
std::optional<SegmentCommand> segmentOf(foundation::Bytes bytes);
/// The same for one of its sections; `index` is not compared with the segment's count.
std::optional<Section> sectionOf(foundation::Bytes bytes, std::uint64_t index);

/// The platform (PLATFORM_IOS, say) that a version-min command implies; absent for any other.
std::optional<std::uint32_t> platformOfVersionMin(std::uint32_t command);

}  // namespace macho

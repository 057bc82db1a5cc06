#include "macho/core/LoadCommands.h"

#include <algorithm>

namespace macho {
namespace {

using foundation::Bytes;
using foundation::readAt;

template <class Record>
std::optional<SegmentCommand> segmentAt(Bytes bytes) {
  const auto record = readAt<Record>(bytes, 0);
  if (!record) return std::nullopt;
  return SegmentCommand{std::to_array(record->segname),
                        record->vmaddr,
                        record->vmsize,
                        record->fileoff,
                        record->filesize,
                        record->nsects};
}

template <class Record>
std::optional<Section> sectionAt(Bytes bytes, std::uint64_t offset) {
  const auto record = readAt<Record>(bytes, offset);
  if (!record) return std::nullopt;
  return Section{std::to_array(record->segname),
                 std::to_array(record->sectname),
                 record->addr,
                 record->size,
                 record->offset,
                 record->flags};
}

std::uint32_t headerSize(std::uint32_t magic) {
  if (magic == MH_MAGIC || magic == MH_CIGAM) return sizeof(mach_header);
  return magic == MH_MAGIC_64 || magic == MH_CIGAM_64 ? sizeof(mach_header_64) : 0;
}

}  // namespace

std::optional<SliceHeader> headerOf(Bytes slice) {
  const std::uint32_t size = headerSize(readAt<std::uint32_t>(slice, 0).value_or(0));
  if (size == 0) return std::nullopt;
  SliceHeader header{{}, size, size == sizeof(mach_header_64)};
  std::memcpy(&header.fields, slice.data(), std::min(slice.size(), sizeof header.fields));
  return header;
}

LoadCommandCursor::LoadCommandCursor(Bytes slice, const SliceHeader& header)
    : slice_(slice), offset_(header.size), count_(header.fields.ncmds) {}

std::optional<LoadCommand> LoadCommandCursor::next() {
  const auto header = readAt<load_command>(slice_, offset_);
  if (index_ == count_ || !header) return std::nullopt;
  const LoadCommand command{header->cmd, offset_, header->cmdsize};
  offset_ += command.size;
  ++index_;
  return command;
}

std::string_view textOf(const Name& name) { return {name.begin(), std::ranges::find(name, '\0')}; }

bool Section::isZeroFilled() const {
  const std::uint32_t type = flags & SECTION_TYPE;
  return type == S_ZEROFILL || type == S_GB_ZEROFILL || type == S_THREAD_LOCAL_ZEROFILL;
}

std::size_t segmentSize(std::uint32_t command) {
  return command == LC_SEGMENT ? sizeof(segment_command) : sizeof(segment_command_64);
}

std::size_t sectionSize(std::uint32_t command) {
  return command == LC_SEGMENT ? sizeof(section) : sizeof(section_64);
}

std::optional<SegmentCommand> segmentOf(Bytes bytes) {
  const auto command = readAt<std::uint32_t>(bytes, 0);
  if (command == LC_SEGMENT) return segmentAt<segment_command>(bytes);
  if (command == LC_SEGMENT_64) return segmentAt<segment_command_64>(bytes);
  return std::nullopt;
}

std::optional<Section> sectionOf(Bytes bytes, std::uint64_t index) {
  const std::uint32_t command = readAt<std::uint32_t>(bytes, 0).value_or(0);
  const std::uint64_t offset = segmentSize(command) + index * sectionSize(command);
  return command == LC_SEGMENT ? sectionAt<section>(bytes, offset)
                               : sectionAt<section_64>(bytes, offset);
}

std::optional<std::uint32_t> platformOfVersionMin(std::uint32_t command) {
  switch (command) {
    case LC_VERSION_MIN_MACOSX:
      return PLATFORM_MACOS;
    case LC_VERSION_MIN_IPHONEOS:
      return PLATFORM_IOS;
    case LC_VERSION_MIN_TVOS:
      return PLATFORM_TVOS;
    case LC_VERSION_MIN_WATCHOS:
      return PLATFORM_WATCHOS;
    default:
      return std::nullopt;
  }
}

}  // namespace macho

#include "toolchain/image/private/SliceParser.h"

#include <algorithm>

#include "macho/Definitions.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

template <std::size_t N>
std::string nameOf(const char (&field)[N]) {
  return {field, std::find(field, field + N, '\0')};
}

/// Reads one slice's load commands into a `Slice`.
class Reader {
 public:
  Reader(Bytes bytes, Slice& slice) : bytes_(bytes), slice_(slice) {}

  Result<> readHeader();
  Result<> readCommands();

 private:
  template <class Header>
  Result<> takeHeader();
  Result<> readCommand(const LoadCommand& command);
  template <class SegmentRecord, class SectionRecord>
  Result<> readSegment(const LoadCommand& command);
  template <class SectionRecord>
  Result<> readSection(const SectionRecord& section, const Segment& segment);
  Result<> keepSegment(const Segment& segment);
  Result<> readSignature(const LoadCommand& command);
  Result<> readSymbolTable(const LoadCommand& command);
  Result<> readBuildVersion(const LoadCommand& command);
  Result<> readMinimumVersion(const LoadCommand& command, Platform platform);
  Result<> readEncryption(const LoadCommand& command);

  /// The command's record; fails when `cmdsize` is too small for it.
  template <class Record>
  Result<Record> record(const LoadCommand& command) const;
  [[nodiscard]] bool holds(const Extent& extent) const {
    return foundation::slice(bytes_, extent.offset, extent.size).has_value();
  }
  [[nodiscard]] foundation::Error outside(const std::string& what, const Extent& extent) const {
    return failure(what + ": offset " + std::to_string(extent.offset) + " and size " +
                   std::to_string(extent.size) + " lie outside the slice of " +
                   std::to_string(bytes_.size()));
  }

  Bytes bytes_;
  Slice& slice_;
  std::uint32_t commandCount_ = 0;
};

bool canBeSigned(std::uint32_t fileType) {
  return fileType == macho::MH_EXECUTE || fileType == macho::MH_DYLIB ||
         fileType == macho::MH_BUNDLE || fileType == macho::MH_DYLINKER ||
         fileType == macho::MH_KEXT_BUNDLE;
}

template <class Header>
Result<> Reader::takeHeader() {
  const auto header = foundation::readAt<Header>(bytes_, 0);
  if (!header) {
    return failure("Mach-O header is cut off after " + std::to_string(bytes_.size()) + " bytes");
  }
  slice_.headerSize = sizeof(Header);
  slice_.cpuType = static_cast<std::uint32_t>(header->cputype);
  slice_.cpuSubtype = static_cast<std::uint32_t>(header->cpusubtype);
  slice_.fileType = header->filetype;
  slice_.commandsSize = header->sizeofcmds;
  slice_.architecture = architectureName(slice_.cpuType, slice_.cpuSubtype);
  commandCount_ = header->ncmds;
  return {};
}

Result<> Reader::readHeader() {
  const std::uint32_t magic = foundation::readAt<std::uint32_t>(bytes_, 0).value_or(0);
  if (magic == macho::MH_CIGAM || magic == macho::MH_CIGAM_64) {
    return failure("big-endian code is not supported");
  }
  if (magic != macho::MH_MAGIC && magic != macho::MH_MAGIC_64) {
    return failure("not a Mach-O file: it begins with " + hex(magic));
  }
  slice_.is64Bit = magic == macho::MH_MAGIC_64;
  auto taken =
      slice_.is64Bit ? takeHeader<macho::mach_header_64>() : takeHeader<macho::mach_header>();
  if (!taken) return taken;
  if (!canBeSigned(slice_.fileType)) {
    return failure("Mach-O file type " + std::to_string(slice_.fileType) + " cannot be signed");
  }
  if (slice_.commandsSize > bytes_.size() - slice_.headerSize) {
    return failure("load commands of " + std::to_string(slice_.commandsSize) +
                   " bytes run past the slice of " + std::to_string(bytes_.size()));
  }
  return {};
}

Result<> Reader::readCommands() {
  const std::uint64_t end = slice_.endOfCommands();
  std::uint64_t offset = slice_.headerSize;
  for (std::uint32_t i = 0; i < commandCount_; ++i) {
    const std::string where =
        "load command " + std::to_string(i) + " of " + std::to_string(commandCount_);
    const auto head = foundation::readAt<macho::load_command>(bytes_, offset);
    if (!head || end - offset < sizeof *head) {
      return failure(where + ": header runs past the commands");
    }
    if (head->cmdsize < sizeof *head || head->cmdsize % 4 != 0) {
      return failure(where + ": cmdsize " + std::to_string(head->cmdsize) +
                     " is below 8 or no multiple of 4");
    }
    if (head->cmdsize > end - offset) {
      return failure(where + ": cmdsize " + std::to_string(head->cmdsize) +
                     " runs past the commands");
    }
    const LoadCommand command{head->cmd, offset, head->cmdsize};
    if (const auto read = readCommand(command); !read) return within(where, read.error());
    slice_.commands.push_back(command);
    offset += head->cmdsize;
  }
  if (offset != end) {
    return failure("load commands end at " + std::to_string(offset) + ", not at " +
                   std::to_string(end) + " as the header says");
  }
  return {};
}

Result<> Reader::readCommand(const LoadCommand& command) {
  switch (command.command) {
    case macho::LC_SEGMENT:
      return readSegment<macho::segment_command, macho::section>(command);
    case macho::LC_SEGMENT_64:
      return readSegment<macho::segment_command_64, macho::section_64>(command);
    case macho::LC_CODE_SIGNATURE:
      return readSignature(command);
    case macho::LC_SYMTAB:
      return readSymbolTable(command);
    case macho::LC_BUILD_VERSION:
      return readBuildVersion(command);
    case macho::LC_VERSION_MIN_MACOSX:
      return readMinimumVersion(command, Platform::macOS);
    case macho::LC_VERSION_MIN_IPHONEOS:
      return readMinimumVersion(command, Platform::iOS);
    case macho::LC_VERSION_MIN_TVOS:
      return readMinimumVersion(command, Platform::tvOS);
    case macho::LC_VERSION_MIN_WATCHOS:
      return readMinimumVersion(command, Platform::watchOS);
    case macho::LC_ENCRYPTION_INFO:
    case macho::LC_ENCRYPTION_INFO_64:
      return readEncryption(command);
    default:
      return {};
  }
}

template <class Record>
Result<Record> Reader::record(const LoadCommand& command) const {
  if (command.size < sizeof(Record)) {
    return failure("cmdsize " + std::to_string(command.size) + " is below " +
                   std::to_string(sizeof(Record)));
  }
  return *foundation::readAt<Record>(bytes_, command.offset);
}

template <class SegmentRecord, class SectionRecord>
Result<> Reader::readSegment(const LoadCommand& command) {
  const auto head = record<SegmentRecord>(command);
  if (!head) return head.error();
  const std::string name = nameOf(head->segname);
  if (head->nsects > (command.size - sizeof(SegmentRecord)) / sizeof(SectionRecord)) {
    return failure("segment " + name + ": " + std::to_string(head->nsects) +
                   " sections do not fit cmdsize " + std::to_string(command.size));
  }
  const Segment segment{name, command.offset, {head->fileoff, head->filesize}, head->vmsize};
  if (!holds(segment.file)) return outside("segment " + name, segment.file);
  for (std::uint32_t i = 0; i < head->nsects; ++i) {
    const std::uint64_t at = command.offset + sizeof(SegmentRecord) + i * sizeof(SectionRecord);
    auto read = readSection(*foundation::readAt<SectionRecord>(bytes_, at), segment);
    if (!read) return read;
  }
  return keepSegment(segment);
}

template <class SectionRecord>
Result<> Reader::readSection(const SectionRecord& section, const Segment& segment) {
  const std::uint32_t type = section.flags & macho::SECTION_TYPE;
  const bool hasContent = type != macho::S_ZEROFILL && type != macho::S_GB_ZEROFILL &&
                          type != macho::S_THREAD_LOCAL_ZEROFILL && section.size != 0;
  if (!hasContent) return {};
  const std::string name = nameOf(section.segname) + "," + nameOf(section.sectname);
  const Extent extent{section.offset, section.size};
  if (!holds(extent)) return outside("section " + name, extent);
  if (extent.offset < slice_.endOfCommands()) {
    return failure("section " + name + ": offset " + std::to_string(extent.offset) +
                   " lies inside the load commands, which end at " +
                   std::to_string(slice_.endOfCommands()));
  }
  if (segment.file.offset == 0) {
    slice_.lowestSectionOffset = std::min(slice_.lowestSectionOffset, extent.offset);
  }
  if (name == "__TEXT,__info_plist") slice_.embeddedInfoPlist = extent;
  return {};
}

Result<> Reader::keepSegment(const Segment& segment) {
  if (segment.file.offset == 0 && segment.file.size > 0) {
    slice_.lowestSectionOffset = std::min(slice_.lowestSectionOffset, segment.file.size);
  }
  const std::string& name = segment.name;
  slice_.segments.push_back(segment);
  std::optional<Segment>* kept = nullptr;
  if (name == macho::SEG_TEXT) kept = &slice_.text;
  if (name == macho::SEG_LINKEDIT) kept = &slice_.linkEdit;
  if (kept && kept->has_value()) return failure("a second segment is named " + name);
  if (kept) *kept = segment;
  if (name != macho::SEG_LINKEDIT) {
    slice_.endOfOtherSegments =
        std::max(slice_.endOfOtherSegments, segment.file.offset + segment.file.size);
  }
  return {};
}

Result<> Reader::readSignature(const LoadCommand& command) {
  const auto head = record<macho::linkedit_data_command>(command);
  if (!head) return head.error();
  if (slice_.signature) return failure("a second LC_CODE_SIGNATURE");
  if (command.size != sizeof(macho::linkedit_data_command)) {
    return failure("LC_CODE_SIGNATURE: cmdsize " + std::to_string(command.size) + " is not " +
                   std::to_string(sizeof(macho::linkedit_data_command)));
  }
  const Extent data{head->dataoff, head->datasize};
  if (!holds(data)) return outside("LC_CODE_SIGNATURE", data);
  if (data.offset < slice_.endOfCommands()) {
    return failure("LC_CODE_SIGNATURE: offset " + std::to_string(data.offset) +
                   " lies inside the load commands");
  }
  slice_.signature = SignatureCommand{command.offset, data};
  return {};
}

Result<> Reader::readSymbolTable(const LoadCommand& command) {
  const auto head = record<macho::symtab_command>(command);
  if (!head) return head.error();
  const Extent strings{head->stroff, head->strsize};
  if (!holds(strings)) return outside("string table", strings);
  slice_.stringTableEnd = strings.offset + strings.size;
  return {};
}

Result<> Reader::readBuildVersion(const LoadCommand& command) {
  const auto head = record<macho::build_version_command>(command);
  if (!head) return head.error();
  slice_.platform = static_cast<Platform>(head->platform);
  slice_.minimumOS = head->minos;
  return {};
}

Result<> Reader::readMinimumVersion(const LoadCommand& command, Platform platform) {
  const auto head = record<macho::version_min_command>(command);
  if (!head) return head.error();
  slice_.platform = platform;
  slice_.minimumOS = head->version;
  return {};
}

Result<> Reader::readEncryption(const LoadCommand& command) {
  const auto head = record<macho::encryption_info_command>(command);
  if (!head) return head.error();
  slice_.cryptIdentifier = head->cryptid;
  return {};
}

}  // namespace

Result<Slice> readSlice(Bytes file, const Extent& extent) {
  Slice slice;
  slice.file = extent;
  slice.lowestSectionOffset = extent.size;
  Reader reader(file.subspan(extent.offset, extent.size), slice);
  if (const auto read = reader.readHeader(); !read) return read.error();
  if (const auto read = reader.readCommands(); !read) return read.error();
  return slice;
}

}  // namespace toolchain

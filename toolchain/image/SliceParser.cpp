#include "toolchain/image/private/SliceParser.h"

#include <algorithm>

#include "macho/core/LoadCommands.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

using macho::LoadCommand;

bool canBeSigned(std::uint32_t fileType) {
  return fileType == macho::MH_EXECUTE || fileType == macho::MH_DYLIB ||
         fileType == macho::MH_BUNDLE || fileType == macho::MH_DYLINKER ||
         fileType == macho::MH_KEXT_BUNDLE;
}

/// Reads one slice's load commands into a `Slice`.
class Reader {
 public:
  Reader(Bytes bytes, Slice& slice) : bytes_(bytes), slice_(slice) {}

  Result<> readHeader() {
    const std::uint32_t magic = foundation::readAt<std::uint32_t>(bytes_, 0).value_or(0);
    if (magic == macho::MH_CIGAM || magic == macho::MH_CIGAM_64) {
      return failure("big-endian code is not supported");
    }
    const auto header = macho::headerOf(bytes_);
    if (!header) return failure("not a Mach-O file: it begins with " + hex(magic));
    if (header->size > bytes_.size()) {
      return failure("Mach-O header is truncated after " + std::to_string(bytes_.size()) +
                     " bytes");
    }
    header_ = *header;
    slice_.is64Bit = header->is64Bit;
    slice_.headerSize = header->size;
    slice_.cpuType = static_cast<std::uint32_t>(header->fields.cputype);
    slice_.cpuSubtype = static_cast<std::uint32_t>(header->fields.cpusubtype);
    slice_.fileType = header->fields.filetype;
    slice_.commandsSize = header->fields.sizeofcmds;
    slice_.architecture = architectureName(slice_.cpuType, slice_.cpuSubtype);
    if (!canBeSigned(slice_.fileType)) {
      return failure("Mach-O file type " + std::to_string(slice_.fileType) + " cannot be signed");
    }
    if (slice_.commandsSize > bytes_.size() - slice_.headerSize) {
      return failure("load commands of " + std::to_string(slice_.commandsSize) +
                     " bytes run past the slice of " + std::to_string(bytes_.size()));
    }
    return {};
  }

  Result<> readCommands() {
    const std::uint64_t end = slice_.endOfCommands();
    const std::uint32_t count = header_.fields.ncmds;
    macho::LoadCommandCursor cursor(bytes_.first(end), header_);
    const auto where = [count](std::uint32_t index) {
      return "load command " + std::to_string(index) + " of " + std::to_string(count);
    };
    while (const auto command = cursor.next()) {
      const std::uint32_t index = cursor.index() - 1;
      if (command->size < sizeof(macho::load_command) || command->size % 4 != 0) {
        return failure(where(index) + ": cmdsize " + std::to_string(command->size) +
                       " is below 8 or not a multiple of 4");
      }
      if (command->size > end - command->offset) {
        return failure(where(index) + ": cmdsize " + std::to_string(command->size) +
                       " runs past the commands");
      }
      if (const auto read = readCommand(*command); !read) return within(where(index), read.error());
    }
    if (cursor.index() < count) {
      return failure(where(cursor.index()) + ": header runs past the commands");
    }
    if (cursor.offset() != end) {
      return failure("load commands end at " + std::to_string(cursor.offset()) + ", not at " +
                     std::to_string(end) + " as the header says");
    }
    return {};
  }

 private:
  Result<> readCommand(const LoadCommand& command) {
    switch (command.command) {
      case macho::LC_SEGMENT:
      case macho::LC_SEGMENT_64:
        return readSegment(command);
      case macho::LC_CODE_SIGNATURE:
        return readSignature(command);
      case macho::LC_SYMTAB:
        return record<macho::symtab_command>(command).andThen(
            [this](const auto& found) -> Result<> {
              const Extent strings{found.stroff, found.strsize};
              if (!holds(strings)) return outside("string table", strings);
              slice_.stringTableEnd = strings.offset + strings.size;
              return {};
            });
      case macho::LC_BUILD_VERSION:
        return record<macho::build_version_command>(command).map(
            [this](const auto& found) { keepVersion(found.platform, found.minos); });
      case macho::LC_ENCRYPTION_INFO:
      case macho::LC_ENCRYPTION_INFO_64:
        return record<macho::encryption_info_command>(command).map(
            [this](const auto& found) { slice_.cryptIdentifier = found.cryptid; });
      default:
        break;
    }
    const auto platform = macho::platformOfVersionMin(command.command);
    if (!platform) return {};
    return record<macho::version_min_command>(command).map(
        [&](const auto& found) { keepVersion(*platform, found.version); });
  }

  void keepVersion(std::uint32_t platform, std::uint32_t minimumOS) {
    slice_.platform = static_cast<Platform>(platform);
    slice_.minimumOS = minimumOS;
  }

  /// Fails when `cmdsize` is below `least`.
  static Result<> checkSize(const LoadCommand& command, std::uint64_t least) {
    if (command.size >= least) return {};
    return failure("cmdsize " + std::to_string(command.size) + " is below " +
                   std::to_string(least));
  }

  /// The command's record; fails when `cmdsize` is too small for it.
  template <class Record>
  Result<Record> record(const LoadCommand& command) const {
    return checkSize(command, sizeof(Record)).map([&] {
      return *foundation::readAt<Record>(bytes_, command.offset);
    });
  }

  Result<> readSegment(const LoadCommand& command) {
    const std::uint64_t headSize = macho::segmentSize(command.command);
    if (auto checked = checkSize(command, headSize); !checked) return checked;
    const Bytes bytes = bytes_.subspan(command.offset, command.size);
    const auto head = macho::segmentOf(bytes);
    const std::string name(macho::textOf(head->name));
    if (head->sectionCount > (command.size - headSize) / macho::sectionSize(command.command)) {
      return failure("segment " + name + ": " + std::to_string(head->sectionCount) +
                     " sections do not fit cmdsize " + std::to_string(command.size));
    }
    const Segment segment{name, command.offset, {head->fileOffset, head->fileSize}};
    if (!holds(segment.file)) return outside("segment " + name, segment.file);
    for (std::uint32_t i = 0; i < head->sectionCount; ++i) {
      if (auto read = readSection(*macho::sectionOf(bytes, i), segment); !read) return read;
    }
    return keepSegment(segment);
  }

  Result<> readSection(const macho::Section& section, const Segment& segment) {
    if (section.isZeroFilled() || section.size == 0) return {};
    const std::string name = std::string(macho::textOf(section.segmentName)) + "," +
                             std::string(macho::textOf(section.name));
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

  Result<> keepSegment(const Segment& segment) {
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

  Result<> readSignature(const LoadCommand& command) {
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
  macho::SliceHeader header_;
};

}  // namespace

Result<Slice> readSlice(Bytes file, const Extent& extent) {
  Slice slice;
  slice.file = extent;
  slice.lowestSectionOffset = extent.size;
  Reader reader(file.subspan(extent.offset, extent.size), slice);
  return reader.readHeader().andThen([&] { return reader.readCommands(); }).map([&] {
    return std::move(slice);
  });
}

}  // namespace toolchain

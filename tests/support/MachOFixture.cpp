#include "tests/support/MachOFixture.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace test {
namespace {

template <class T>
std::string recordBytes(const T& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

template <std::size_t N>
void setName(char (&field)[N], std::string_view name) {
  std::copy_n(name.begin(), std::min(name.size(), N), field);
}

std::uint32_t size32(std::size_t size) { return static_cast<std::uint32_t>(size); }

/// `from` as a record of either width, and its sections.
template <class SegmentCommand, class Section>
std::string segmentBytes(const macho::segment_command_64& from,
                         const std::vector<MachOSectionSpec>& sections) {
  const auto narrowed = []<class T>(T& field, std::uint64_t value) {
    field = static_cast<T>(value);
  };
  SegmentCommand segment{};
  segment.cmd = sizeof(SegmentCommand) == sizeof from ? macho::LC_SEGMENT_64 : macho::LC_SEGMENT;
  segment.cmdsize = size32(sizeof segment + sections.size() * sizeof(Section));
  std::ranges::copy(from.segname, segment.segname);
  narrowed(segment.vmaddr, from.vmaddr);
  narrowed(segment.vmsize, from.vmsize);
  narrowed(segment.fileoff, from.fileoff);
  narrowed(segment.filesize, from.filesize);
  segment.nsects = size32(sections.size());
  std::string bytes = recordBytes(segment);
  for (const MachOSectionSpec& spec : sections) {
    Section section{};
    setName(section.sectname, spec.name);
    std::ranges::copy(from.segname, section.segname);
    narrowed(section.addr, spec.address);
    narrowed(section.size, spec.bytes.size());
    section.offset = spec.offset.value_or(0);
    section.flags = spec.flags;
    bytes += recordBytes(section);
  }
  return bytes;
}

}  // namespace

std::string word(std::uint32_t value) { return recordBytes(value); }

void poke(std::string& bytes, std::size_t offset, std::uint32_t value) {
  bytes.replace(offset, sizeof value, word(value));
}

MachOImage::MachOImage(std::int32_t cpuType, std::int32_t cpuSubtype, std::uint32_t fileType)
    : cpuType_(cpuType), cpuSubtype_(cpuSubtype), fileType_(fileType) {}

MachOImage& MachOImage::command(std::string bytes) {
  commands_.push_back(std::move(bytes));
  return *this;
}

MachOImage& MachOImage::bareCommand(std::uint32_t cmd, std::uint32_t cmdsize) {
  return command(word(cmd) + word(cmdsize));
}

MachOImage& MachOImage::uuid(std::string_view hex) {
  macho::uuid_command record{macho::LC_UUID, sizeof record, {}};
  for (std::size_t i = 0; i < sizeof record.uuid; ++i) {
    record.uuid[i] =
        static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(2 * i, 2)), nullptr, 16));
  }
  return command(recordBytes(record));
}

MachOImage& MachOImage::versionMin(std::uint32_t cmd, std::uint32_t version, std::uint32_t sdk) {
  return command(recordBytes(
      macho::version_min_command{cmd, sizeof(macho::version_min_command), version, sdk}));
}

MachOImage& MachOImage::buildVersion(std::uint32_t platform, std::uint32_t minimum,
                                     std::uint32_t sdk) {
  return command(recordBytes(macho::build_version_command{
      macho::LC_BUILD_VERSION, sizeof(macho::build_version_command), platform, minimum, sdk, 0}));
}

MachOImage& MachOImage::dylib(std::string_view path, std::uint32_t cmd) {
  const std::size_t padded = (path.size() + 8) / 8 * 8;
  const macho::dylib_command record{cmd, size32(sizeof record + padded), sizeof record, 0, 0, 0};
  std::string bytes = recordBytes(record) + std::string(path);
  bytes.resize(sizeof record + padded);
  return command(std::move(bytes));
}

MachOImage& MachOImage::encryption(std::uint32_t cryptid) {
  const std::string padding(is64Bit() ? 4 : 0, '\0');
  const macho::encryption_info_command record{
      is64Bit() ? macho::LC_ENCRYPTION_INFO_64 : macho::LC_ENCRYPTION_INFO,
      size32(sizeof record + padding.size()), 0, 0, cryptid};
  return command(recordBytes(record) + padding);
}

MachOImage& MachOImage::segment(std::string_view name, std::uint64_t address, std::uint64_t size,
                                std::vector<MachOSectionSpec> sections) {
  macho::segment_command_64 segment{};
  setName(segment.segname, name);
  segment.vmaddr = address;
  segment.vmsize = size;
  return addSegment(segment, std::move(sections));
}

MachOImage& MachOImage::fileSegment(std::string_view name, std::uint64_t offset, std::uint64_t size,
                                    std::vector<MachOSectionSpec> sections) {
  macho::segment_command_64 segment{};
  setName(segment.segname, name);
  segment.vmsize = segment.filesize = size;
  segment.fileoff = offset;
  return addSegment(segment, std::move(sections));
}

MachOImage& MachOImage::addSegment(const macho::segment_command_64& segment,
                                   std::vector<MachOSectionSpec> sections) {
  std::string bytes =
      is64Bit() ? segmentBytes<macho::segment_command_64, macho::section_64>(segment, sections)
                : segmentBytes<macho::segment_command, macho::section>(segment, sections);
  segments_.push_back({commands_.size(), std::move(sections)});
  return command(std::move(bytes));
}

MachOImage& MachOImage::signature(std::uint64_t offset, std::uint64_t size) {
  const macho::linkedit_data_command record{macho::LC_CODE_SIGNATURE, sizeof record, size32(offset),
                                            size32(size)};
  return command(recordBytes(record));
}

MachOImage& MachOImage::magic(std::uint32_t value) {
  magic_ = value;
  return *this;
}

MachOImage& MachOImage::commandCount(std::uint32_t count) {
  count_ = count;
  return *this;
}

MachOImage& MachOImage::paddedTo(std::size_t size) {
  leastSize_ = size;
  return *this;
}

std::string MachOImage::bytes() const {
  std::string commands;
  for (const std::string& bytes : commands_) commands += bytes;
  const macho::mach_header_64 header{
      magic_.value_or(is64Bit() ? macho::MH_MAGIC_64 : macho::MH_MAGIC),
      cpuType_,
      cpuSubtype_,
      fileType_,
      count_.value_or(size32(commands_.size())),
      size32(commands.size()),
      macho::MH_NOUNDEFS | macho::MH_DYLDLINK | macho::MH_TWOLEVEL | macho::MH_PIE,
      0};
  std::string image = recordBytes(header).substr(0, headerSize()) + commands;
  appendSections(image);
  image.resize(std::max(image.size(), leastSize_));
  return image;
}

void MachOImage::appendSections(std::string& out) const {
  for (const Segment& segment : segments_) {
    std::size_t at = headerSize();
    for (std::size_t i = 0; i < segment.command; ++i) at += commands_[i].size();
    at += is64Bit() ? sizeof(macho::segment_command_64) : sizeof(macho::segment_command);
    for (const MachOSectionSpec& spec : segment.sections) {
      const std::size_t field =
          is64Bit() ? offsetof(macho::section_64, offset) : offsetof(macho::section, offset);
      if (!spec.offset) {
        poke(out, at + field, size32(out.size()));
        out += spec.bytes;
      }
      at += is64Bit() ? sizeof(macho::section_64) : sizeof(macho::section);
    }
  }
}

std::string universalFile(const std::vector<FatSlice>& slices, std::uint32_t alignment,
                          std::optional<std::uint32_t> count) {
  std::string records = recordBytes(macho::byteSwapped(
      macho::fat_header{macho::FAT_MAGIC, count.value_or(size32(slices.size()))}));
  const std::size_t unit = std::size_t{1} << alignment;
  std::size_t end = records.size() + slices.size() * sizeof(macho::fat_arch);
  std::string images(end, '\0');
  for (const FatSlice& slice : slices) {
    images.resize((images.size() + unit - 1) / unit * unit);
    const std::uint32_t offset = slice.offset.value_or(size32(images.size()));
    records += recordBytes(macho::byteSwapped(macho::fat_arch{
        slice.cpuType, slice.cpuSubtype, offset, size32(slice.bytes.size()), alignment}));
    images += slice.bytes;
  }
  return images.replace(0, records.size(), records);
}

}  // namespace test

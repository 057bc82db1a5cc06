#include "toolchain/image/SignatureLayout.h"

#include <algorithm>

#include "foundation/base/Assertion.h"
#include "macho/core/Definitions.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

constexpr std::uint64_t kSignatureAlignment = 16;
constexpr std::uint64_t kSegmentAlignment = 0x4000;
constexpr std::uint32_t kSliceAlignmentShift = 14;
constexpr std::uint64_t kSliceAlignment = std::uint64_t{1} << kSliceAlignmentShift;
/// Most padding that linkers put between the string table and the signature.
constexpr std::uint64_t kMaximumStringTail = 12;

std::uint64_t roundedUp(std::uint64_t value, std::uint64_t to) {
  return (value + to - 1) / to * to;
}

template <class Record>
void put(std::vector<std::byte>& bytes, std::uint64_t offset, const Record& record) {
  foundation::assertThat(foundation::slice(bytes, offset, sizeof record).has_value(),
                         "record lies in the head", {__func__, "SignatureLayout.cpp", __LINE__});
  std::memcpy(bytes.data() + offset, &record, sizeof record);
}

template <class Record>
Record get(const std::vector<std::byte>& bytes, std::uint64_t offset) {
  const auto record = foundation::readAt<Record>(bytes, offset);
  foundation::assertThat(record.has_value(), "record lies in the head",
                         {__func__, "SignatureLayout.cpp", __LINE__});
  return *record;
}

Result<> checkLinkEdit(const MachOFile& image, const Slice& slice) {
  if (slice.cryptIdentifier != 0) {
    return failure("the code is encrypted (cryptid " + std::to_string(slice.cryptIdentifier) + ")");
  }
  if (!slice.text) return failure("no __TEXT segment");
  if (!slice.linkEdit) return failure("no __LINKEDIT segment");
  const Extent& linkEdit = slice.linkEdit->file;
  if (slice.endOfOtherSegments > linkEdit.offset) {
    return failure("__LINKEDIT at " + std::to_string(linkEdit.offset) +
                   " is not last: another segment ends at " +
                   std::to_string(slice.endOfOtherSegments));
  }
  if (!endsSlice(image.bytesOf(slice), linkEdit.offset + linkEdit.size)) {
    return failure("bytes follow __LINKEDIT, which ends at " +
                   std::to_string(linkEdit.offset + linkEdit.size) + " of " +
                   std::to_string(slice.file.size));
  }
  return {};
}

Result<std::uint64_t> oldSignatureOffset(const MachOFile& image, const Slice& slice) {
  const Extent& data = slice.signature->data;
  if (data.offset < slice.linkEdit->file.offset) {
    return failure("the old signature at " + std::to_string(data.offset) +
                   " does not lie in __LINKEDIT");
  }
  if (!endsSlice(image.bytesOf(slice), data.offset + data.size)) {
    return failure("the old signature ends at " + std::to_string(data.offset + data.size) +
                   ", not with the slice at " + std::to_string(slice.file.size));
  }
  return data.offset;
}

void countCommand(std::vector<std::byte>& head, int change) {
  auto header = get<macho::mach_header>(head, 0);  // a 64-bit header begins with the same fields
  header.ncmds += static_cast<std::uint32_t>(change);
  constexpr std::uint32_t kSize = sizeof(macho::linkedit_data_command);
  header.sizeofcmds += static_cast<std::uint32_t>(change) * kSize;
  put(head, 0, header);
}

template <class Record>
void resizeLinkEdit(std::vector<std::byte>& head, std::uint64_t offset, std::uint64_t sliceSize) {
  auto record = get<Record>(head, offset);
  using Size = decltype(record.filesize);
  const std::uint64_t size = sliceSize - record.fileoff;
  record.filesize = static_cast<Size>(size);
  record.vmsize = static_cast<Size>(roundedUp(size, kSegmentAlignment));
  put(head, offset, record);
}

void resizeLinkEdit(std::vector<std::byte>& head, const Slice& slice, std::uint64_t sliceSize) {
  const auto resize = slice.is64Bit ? resizeLinkEdit<macho::segment_command_64>
                                    : resizeLinkEdit<macho::segment_command>;
  resize(head, slice.linkEdit->commandOffset, sliceSize);
}

std::vector<std::byte> headOf(Bytes slice, std::uint64_t size) {
  const Bytes head = slice.first(size);
  return {head.begin(), head.end()};
}

Result<> checkFits32(std::uint64_t size) {
  if (size <= UINT32_MAX) return {};
  return failure("too large: the signature would end at " + std::to_string(size) +
                 ", beyond 32 bits");
}

/// Where the slice ends once its signature is removed.
std::uint64_t unsignedEnd(const Slice& slice) {
  const std::uint64_t end = slice.signature->data.offset;
  const std::uint64_t least = std::max(slice.linkEdit->file.offset, slice.endOfCommands());
  if (!slice.stringTableEnd || *slice.stringTableEnd >= end || *slice.stringTableEnd < least) {
    return end;
  }
  return end - *slice.stringTableEnd <= kMaximumStringTail ? *slice.stringTableEnd : end;
}

/// Closes the gap that the command leaves.
void dropSignatureCommand(SliceLayout& layout, const Slice& slice) {
  constexpr std::ptrdiff_t kSize = sizeof(macho::linkedit_data_command);
  const auto at = layout.head.begin() + static_cast<std::ptrdiff_t>(slice.signature->commandOffset);
  std::move(at + kSize, layout.head.end(), at);
  std::fill(layout.head.end() - kSize, layout.head.end(), std::byte{0});
  countCommand(layout.head, -1);
}

std::vector<std::byte> universalHeader(const MachOFile& image,
                                       const std::vector<SliceLayout>& slices) {
  std::vector<std::byte> header(kSliceAlignment);
  put(header, 0,
      macho::byteSwapped(
          macho::fat_header{macho::FAT_MAGIC, static_cast<std::uint32_t>(slices.size())}));
  for (std::size_t i = 0; i < slices.size(); ++i) {
    const macho::fat_arch arch{static_cast<std::int32_t>(image.slices()[i].cpuType),
                               static_cast<std::int32_t>(image.slices()[i].cpuSubtype),
                               static_cast<std::uint32_t>(slices[i].fileOffset),
                               static_cast<std::uint32_t>(slices[i].size()), kSliceAlignmentShift};
    put(header, sizeof(macho::fat_header) + i * sizeof arch, macho::byteSwapped(arch));
  }
  return header;
}

}  // namespace

bool endsSlice(Bytes slice, std::uint64_t end) {
  constexpr std::uint64_t kMaximumTail = 15;
  return slice.size() - end <= kMaximumTail && foundation::isZero(slice.subspan(end));
}

Result<> checkSegments(const Slice& slice) {
  const Segment* last = nullptr;
  for (const Segment& segment : slice.segments) {
    if (segment.file.size == 0) continue;
    if (last && segment.file.offset < last->file.offset + last->file.size) {
      return failure("segment " + segment.name + " at " + std::to_string(segment.file.offset) +
                     " begins before the end of " + last->name + " at " +
                     std::to_string(last->file.offset + last->file.size));
    }
    last = &segment;
  }
  if (!last || last->name != macho::SEG_LINKEDIT) {
    return failure("the last segment is " + (last ? last->name : "none") + ", not __LINKEDIT");
  }
  if (!slice.signature) return {};
  const Extent& data = slice.signature->data;
  if (data.offset < last->file.offset ||
      data.offset + data.size > last->file.offset + last->file.size) {
    return failure("the signature at " + std::to_string(data.offset) + " of " +
                   std::to_string(data.size) + " bytes does not lie in __LINKEDIT");
  }
  return {};
}

Result<std::uint64_t> signatureOffset(const MachOFile& image, const Slice& slice) {
  if (const auto checked = checkLinkEdit(image, slice); !checked) return checked.error();
  if (slice.signature) return oldSignatureOffset(image, slice);
  constexpr std::uint64_t kNeeded = sizeof(macho::linkedit_data_command);
  if (slice.lowestSectionOffset < slice.endOfCommands() ||
      slice.lowestSectionOffset - slice.endOfCommands() < kNeeded) {
    return failure("not enough room in load commands to add LC_CODE_SIGNATURE: they end at " +
                   std::to_string(slice.endOfCommands()) + ", the first section begins at " +
                   std::to_string(slice.lowestSectionOffset));
  }
  return roundedUp(slice.file.size, kSignatureAlignment);
}

Result<SliceLayout> layOut(const MachOFile& image, const Slice& slice, std::uint64_t room) {
  const auto offset = signatureOffset(image, slice);
  if (!offset) return offset.error();
  if (const auto fits = checkFits32(*offset + room); !fits) return fits.error();
  const Bytes bytes = image.bytesOf(slice);
  constexpr std::uint64_t kCommandSize = sizeof(macho::linkedit_data_command);
  const std::uint64_t commandOffset =
      slice.signature ? slice.signature->commandOffset : slice.endOfCommands();
  const std::uint64_t headSize = std::max(slice.endOfCommands(), commandOffset + kCommandSize);
  SliceLayout layout;
  layout.codeLimit = *offset;
  layout.room = room;
  layout.head = headOf(bytes, headSize);
  if (!slice.signature) countCommand(layout.head, 1);
  auto command = slice.signature
                     ? get<macho::linkedit_data_command>(layout.head, commandOffset)
                     : macho::linkedit_data_command{macho::LC_CODE_SIGNATURE, kCommandSize, 0, 0};
  command.dataoff = static_cast<std::uint32_t>(*offset);
  command.datasize = static_cast<std::uint32_t>(room);
  put(layout.head, commandOffset, command);
  resizeLinkEdit(layout.head, slice, layout.size());
  const std::uint64_t kept = std::min<std::uint64_t>(bytes.size(), *offset);
  layout.rest = bytes.subspan(headSize, kept - headSize);
  layout.fill.resize(*offset - kept);
  return layout;
}

Result<SliceLayout> layOutUnsigned(const MachOFile& image, const Slice& slice) {
  SliceLayout layout;
  const Bytes bytes = image.bytesOf(slice);
  layout.codeLimit = bytes.size();
  layout.head = headOf(bytes, slice.endOfCommands());
  if (slice.signature) {
    const auto offset = signatureOffset(image, slice);
    if (!offset) return offset.error();
    layout.codeLimit = unsignedEnd(slice);
    resizeLinkEdit(layout.head, slice, layout.codeLimit);
    dropSignatureCommand(layout, slice);
  }
  layout.rest = bytes.subspan(layout.head.size(), layout.codeLimit - layout.head.size());
  return layout;
}

Result<FileLayout> layOutFile(const MachOFile& image, std::vector<SliceLayout> slices) {
  if (!image.isUniversal()) return FileLayout{std::move(slices), {}};
  std::uint64_t end = kSliceAlignment;
  for (SliceLayout& slice : slices) {
    slice.fileOffset = roundedUp(end, kSliceAlignment);
    end = slice.fileOffset + slice.size();
  }
  return checkFits32(end).map([&] {
    auto header = universalHeader(image, slices);
    return FileLayout{std::move(slices), std::move(header)};
  });
}

std::uint64_t fileSize(const FileLayout& layout) {
  const SliceLayout& last = layout.slices.back();
  return last.fileOffset + last.size();
}

std::vector<FilePart> codeParts(const FileLayout& layout) {
  std::vector<FilePart> parts = {{0, {layout.header}}};
  for (const SliceLayout& slice : layout.slices) parts.push_back({slice.fileOffset, slice.code()});
  return parts;
}

}  // namespace toolchain

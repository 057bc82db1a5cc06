#include "preparation/ZipDirectory.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <string>
#include <utility>

namespace archive {

using foundation::Bytes;
using foundation::Result;

namespace {

constexpr std::uint32_t kEntrySignature = 0x02014b50;
constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kEnd64Signature = 0x06064b50;
constexpr std::uint32_t kLocator64Signature = 0x07064b50;

constexpr std::uint64_t kEntrySize = 46;
constexpr std::uint64_t kEndSize = 22;
constexpr std::uint64_t kEnd64Size = 56;
constexpr std::uint64_t kLocator64Size = 20;
constexpr std::uint64_t kLocalHeaderSize = 30;
constexpr std::uint64_t kExtraHeaderSize = 4;
constexpr std::uint64_t kLongestComment = 0xffff;

constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kUnicodePathField = 0x7075;
constexpr std::uint16_t kUTF8Flag = 1 << 11;
/// Of "version made by", in its upper byte.
constexpr std::uint16_t kUnixHost = 3;
constexpr std::uint16_t kDarwinHost = 19;

constexpr std::uint16_t kSaturated16 = 0xffff;
constexpr std::uint32_t kSaturated32 = 0xffffffff;

foundation::Error problem(std::string text) {
  return foundation::makeError(foundation::kCocoaErrorDomain, 0, std::move(text));
}

std::string text(std::uint64_t number) { return std::to_string(number); }

/// Little-endian; the record's bounds must have been checked.
template <class Number>
Number numberAt(Bytes record, std::uint64_t offset) {
  static_assert(std::endian::native == std::endian::little);
  return foundation::readAt<Number>(record, offset).value_or(0);
}

std::uint32_t crc32(Bytes bytes) {
  constexpr std::uint32_t polynomial = 0xedb88320;
  std::uint32_t crc = ~0U;
  for (const std::byte byte : bytes) {
    crc ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? polynomial : 0);
  }
  return ~crc;
}

// ---- The records at the end

struct Location {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t count = 0;
  /// Where the end records begin.
  std::uint64_t end = 0;
};

/// Of the last end record.
Result<std::uint64_t> findEnd(Bytes archive) {
  if (archive.size() < kEndSize) {
    return problem("archive of " + text(archive.size()) + " bytes: no end record");
  }
  const std::uint64_t last = archive.size() - kEndSize;
  const std::uint64_t first = last > kLongestComment ? last - kLongestComment : 0;
  for (std::uint64_t offset = last + 1; offset-- > first;) {
    if (numberAt<std::uint32_t>(archive, offset) != kEndSignature) continue;
    const auto comment = numberAt<std::uint16_t>(archive, offset + 20);
    if (comment == last - offset) return offset;
    return problem("end record at " + text(offset) + ": comment of " + text(comment) + " bytes, " +
                   text(last - offset) + " follow");
  }
  return problem("archive of " + text(archive.size()) + " bytes: no end record");
}

/// The older record repeats a Zip64 number, or has the largest value in its place.
template <class Number>
bool agrees(Number small, std::uint64_t large) {
  return small == std::numeric_limits<Number>::max() || small == large;
}

Result<Location> readEnd64(Bytes archive, std::uint64_t locatorOffset, const Location& small) {
  const Bytes locator = *foundation::slice(archive, locatorOffset, kLocator64Size);
  const auto offset = numberAt<std::uint64_t>(locator, 8);
  const std::string where = "Zip64 end record at " + text(offset);
  const auto record = foundation::slice(archive, offset, kEnd64Size);
  if (!record || numberAt<std::uint32_t>(*record, 0) != kEnd64Signature) {
    return problem(where + ": not there");
  }
  if (offset > locatorOffset || locatorOffset - offset < kEnd64Size) {
    return problem(where + ": reaches into its locator at " + text(locatorOffset));
  }
  if (numberAt<std::uint32_t>(locator, 4) != 0 || numberAt<std::uint32_t>(locator, 16) > 1 ||
      numberAt<std::uint32_t>(*record, 16) != 0 || numberAt<std::uint32_t>(*record, 20) != 0) {
    return problem(where + ": an archive in several parts");
  }
  constexpr std::uint64_t headSize = 12;
  const auto size = numberAt<std::uint64_t>(*record, 4);
  if (size != locatorOffset - offset - headSize) {
    return problem(where + ": size " + text(size) + ", its locator is at " + text(locatorOffset));
  }
  const Location large{.offset = numberAt<std::uint64_t>(*record, 48),
                       .size = numberAt<std::uint64_t>(*record, 40),
                       .count = numberAt<std::uint64_t>(*record, 32),
                       .end = offset};
  if (!agrees(static_cast<std::uint16_t>(small.count), large.count) ||
      !agrees(static_cast<std::uint32_t>(small.size), large.size) ||
      !agrees(static_cast<std::uint32_t>(small.offset), large.offset) ||
      numberAt<std::uint64_t>(*record, 24) != large.count) {
    return problem(where + ": differs from the end record");
  }
  return large;
}

Result<Location> locate(Bytes archive) {
  const auto end = findEnd(archive);
  if (!end) return end.error();
  const Bytes record = *foundation::slice(archive, *end, kEndSize);
  const auto disk = numberAt<std::uint16_t>(record, 4);
  const auto directoryDisk = numberAt<std::uint16_t>(record, 6);
  const auto countHere = numberAt<std::uint16_t>(record, 8);
  const Location small{.offset = numberAt<std::uint32_t>(record, 16),
                       .size = numberAt<std::uint32_t>(record, 12),
                       .count = numberAt<std::uint16_t>(record, 10),
                       .end = *end};
  const bool hasLocator =
      *end >= kLocator64Size &&
      numberAt<std::uint32_t>(archive, *end - kLocator64Size) == kLocator64Signature;
  if (countHere != small.count || !agrees(disk, 0) || !agrees(directoryDisk, 0) ||
      (!hasLocator && (disk != 0 || directoryDisk != 0))) {
    return problem("end record at " + text(*end) + ": an archive in several parts");
  }
  return hasLocator ? readEnd64(archive, *end - kLocator64Size, small) : small;
}

// ---- Entries

/// Replaces the entry's saturated numbers, in the field's order.
Result<> readZip64Field(Bytes field, ZipEntry& entry) {
  std::uint64_t used = 0;
  for (auto* number : {&entry.uncompressedSize, &entry.compressedSize, &entry.headerOffset}) {
    if (*number != kSaturated32) continue;
    const auto large = foundation::readAt<std::uint64_t>(field, used);
    if (!large) return problem("Zip64 field of " + text(field.size()) + " bytes is too short");
    *number = *large;
    used += sizeof *large;
  }
  return {};
}

/// Ignored if its checksum is not that of the entry's name.
Result<> readUnicodePath(Bytes field, ZipEntry& entry) {
  constexpr std::uint64_t headSize = 5;
  if (field.size() <= headSize) {
    return problem("Unicode path field of " + text(field.size()) + " bytes is too short");
  }
  const std::string_view name = foundation::textOf(field.subspan(headSize));
  if (name.find('\0') != name.npos) return problem("Unicode path with a NUL");
  if (numberAt<std::uint8_t>(field, 0) == 1 &&
      numberAt<std::uint32_t>(field, 1) == crc32(foundation::bytesOf(entry.name))) {
    entry.unicodeName = name;
  }
  return {};
}

/// A remainder too short for a field is padding. Readers disagree on which of two Unicode paths
/// counts.
Result<> readExtra(Bytes extra, ZipEntry& entry) {
  bool needsZip64 = entry.compressedSize == kSaturated32 ||
                    entry.uncompressedSize == kSaturated32 || entry.headerOffset == kSaturated32;
  bool hasUnicodePath = false;
  while (extra.size() >= kExtraHeaderSize) {
    const auto kind = numberAt<std::uint16_t>(extra, 0);
    const auto size = numberAt<std::uint16_t>(extra, 2);
    const auto field = foundation::slice(extra, kExtraHeaderSize, size);
    if (!field) {
      return problem("extra field of " + text(size) + " bytes, " +
                     text(extra.size() - kExtraHeaderSize) + " left");
    }
    Result<> read;
    if (kind == kZip64Field && needsZip64) {
      read = readZip64Field(*field, entry);
      needsZip64 = false;
    } else if (kind == kUnicodePathField) {
      if (std::exchange(hasUnicodePath, true)) return problem("a second Unicode path");
      read = readUnicodePath(*field, entry);
    }
    if (!read) return read;
    extra = extra.subspan(kExtraHeaderSize + size);
  }
  if (needsZip64) return problem("no Zip64 field for the numbers that it needs");
  return {};
}

/// `dataEnd`: where the directory begins, after all data.
Result<> checkEntry(const ZipEntry& entry, std::uint16_t disk, std::uint64_t dataEnd) {
  if (entry.name.empty()) return problem("no name");
  if (entry.name.find('\0') != entry.name.npos) return problem("name with a NUL");
  if (disk != 0 && disk != kSaturated16) return problem("on disk " + text(disk));
  if (entry.headerOffset > dataEnd || dataEnd - entry.headerOffset < kLocalHeaderSize) {
    return problem("header at " + text(entry.headerOffset) + ", the directory is at " +
                   text(dataEnd));
  }
  const std::uint64_t room = dataEnd - entry.headerOffset - kLocalHeaderSize;
  if (entry.compressedSize > room) {
    return problem("data of " + text(entry.compressedSize) + " bytes, " + text(room) +
                   " before the directory");
  }
  return {};
}

/// Consumes one entry from the front of `directory`. Zip64 numbers replace the largest values of
/// the older ones.
Result<ZipEntry> takeEntry(Bytes& directory, std::uint64_t dataEnd) {
  const auto header = foundation::slice(directory, 0, kEntrySize);
  if (!header) {
    return problem("header of " + text(kEntrySize) + " bytes, " + text(directory.size()) + " left");
  }
  const auto signature = numberAt<std::uint32_t>(*header, 0);
  if (signature != kEntrySignature) return problem("signature " + text(signature));
  const auto nameSize = numberAt<std::uint16_t>(*header, 28);
  const auto extraSize = numberAt<std::uint16_t>(*header, 30);
  const std::uint64_t size =
      kEntrySize + nameSize + extraSize + numberAt<std::uint16_t>(*header, 32);
  if (size > directory.size()) {
    return problem("size " + text(size) + ", " + text(directory.size()) + " left");
  }
  ZipEntry entry{.name = foundation::textOf(directory.subspan(kEntrySize, nameSize)),
                 .isUTF8 = (numberAt<std::uint16_t>(*header, 8) & kUTF8Flag) != 0,
                 .method = numberAt<std::uint16_t>(*header, 10),
                 .compressedSize = numberAt<std::uint32_t>(*header, 20),
                 .uncompressedSize = numberAt<std::uint32_t>(*header, 24),
                 .headerOffset = numberAt<std::uint32_t>(*header, 42)};
  const auto host = numberAt<std::uint16_t>(*header, 4) >> 8;
  if (host == kUnixHost || host == kDarwinHost) {
    entry.unixMode = numberAt<std::uint32_t>(*header, 38) >> 16;
  }
  const Bytes extra = directory.subspan(kEntrySize + nameSize, extraSize);
  directory = directory.subspan(static_cast<std::size_t>(size));
  return readExtra(extra, entry)
      .andThen([&] { return checkEntry(entry, numberAt<std::uint16_t>(*header, 34), dataEnd); })
      .map([&] { return entry; });
}

}  // namespace

Result<ZipDirectory> ZipDirectory::read(Bytes archive) {
  const auto location = locate(archive);
  if (!location) return location.error();
  const std::string where =
      "directory of " + text(location->size) + " bytes at " + text(location->offset);
  if (location->offset > location->end || location->size != location->end - location->offset) {
    return problem(where + ": does not end at the end records at " + text(location->end));
  }
  if (location->count > location->size / kEntrySize) {
    return problem(where + ": no room for " + text(location->count) + " entries");
  }
  ZipDirectory directory;
  directory.entries_.reserve(static_cast<std::size_t>(location->count));
  Bytes rest = *foundation::slice(archive, location->offset, location->size);
  for (std::uint64_t i = 0; i < location->count; ++i) {
    auto entry = takeEntry(rest, location->offset);
    if (!entry) {
      return problem("entry " + text(i) + " of " + text(location->count) + ": " +
                     entry.error().localizedDescription());
    }
    directory.entries_.push_back(*std::move(entry));
  }
  if (!rest.empty())
    return problem(where + ": " + text(rest.size()) + " bytes after the last entry");
  return directory;
}

std::uint64_t ZipDirectory::uncompressedSize() const {
  std::uint64_t sum = 0;
  for (const ZipEntry& entry : entries_) {
    const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - sum;
    sum += std::min(room, entry.uncompressedSize);
  }
  return sum;
}

}  // namespace archive

#include "toolchain/image/MachOFile.h"

#include <algorithm>
#include <bit>

#include "macho/core/Architectures.h"
#include "macho/core/Definitions.h"
#include "macho/core/FatTable.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/private/SliceParser.h"

namespace toolchain {

static_assert(std::endian::native == std::endian::little, "records are read in the host's order");

namespace {

// A Java class has its version, 45 and up, where a universal file counts its slices.
constexpr std::uint32_t kMaximumSlices = 29;

Result<std::vector<macho::FatEntry>> fatEntries(Bytes file, const macho::FatTable& table) {
  std::vector<macho::FatEntry> entries;
  for (std::uint32_t i = 0; i < table.count(); ++i) {
    const auto entry = table.entry(i);
    const std::string where = "slice " + std::to_string(i) + " of " + std::to_string(table.count());
    if (!entry) return failure(where + ": its table entry runs past the end of the file");
    if (!foundation::slice(file, entry->offset, entry->size)) {
      return failure(where + ": offset " + std::to_string(entry->offset) + " and size " +
                     std::to_string(entry->size) + " lie outside the file of " +
                     std::to_string(file.size()));
    }
    entries.push_back(*entry);
  }
  return entries;
}

Result<> checkDisjoint(const std::vector<macho::FatEntry>& entries, std::uint64_t tableEnd) {
  std::vector<Extent> extents = {{0, tableEnd}};
  for (const auto& entry : entries) extents.push_back({entry.offset, entry.size});
  std::ranges::sort(extents, {}, &Extent::offset);
  for (std::size_t i = 1; i < extents.size(); ++i) {
    const Extent& before = extents[i - 1];
    if (extents[i].offset - before.offset < before.size) {
      return failure("slice at offset " + std::to_string(extents[i].offset) +
                     " overlaps what begins at " + std::to_string(before.offset));
    }
  }
  return {};
}

bool isUniversalMagic(std::uint32_t magic) {
  return magic == macho::FAT_CIGAM || magic == macho::FAT_CIGAM_64;
}

bool isPlausible(const macho::FatTable& table) {
  return table.count() > 0 && table.count() <= kMaximumSlices;
}

Result<std::vector<macho::FatEntry>> readFatTable(Bytes file, const macho::FatTable& table) {
  if (file.size() < sizeof(macho::fat_header)) return failure("universal header is truncated");
  if (!isPlausible(table)) {
    return failure("not a Mach-O file: its universal header counts " +
                   std::to_string(table.count()) + " slices");
  }
  return fatEntries(file, table).andThen([&](std::vector<macho::FatEntry> entries) {
    return checkDisjoint(entries, table.size()).map([&] { return std::move(entries); });
  });
}

Result<Slice> readFatSlice(Bytes file, const macho::FatEntry& entry) {
  const std::string name =
      architectureName(static_cast<std::uint32_t>(entry.cpuType), entry.cpuSubtype);
  constexpr std::uint32_t kMaximumAlignment = 31;
  if (entry.alignment > kMaximumAlignment ||
      entry.offset % (std::uint64_t{1} << entry.alignment) != 0) {
    return failure(name + ": offset " + std::to_string(entry.offset) + " is not a multiple of 2^" +
                   std::to_string(entry.alignment));
  }
  auto slice = readSlice(file, {entry.offset, entry.size}).mapError(within(name));
  // Capability bits may differ.
  if (slice && slice->architecture != name) {
    return failure(name + ": the slice's own header names " + slice->architecture);
  }
  return slice;
}

}  // namespace

bool Slice::isMainExecutable() const { return fileType == macho::MH_EXECUTE; }

Result<MachOFile> MachOFile::parse(Bytes file) {
  const auto magic = foundation::readAt<std::uint32_t>(file, 0);
  if (!magic) return failure("not a Mach-O file: it has " + std::to_string(file.size()) + " bytes");
  MachOFile image;
  image.file_ = file;
  if (!isUniversalMagic(*magic)) {
    return readSlice(file, {0, file.size()}).map([&](Slice slice) {
      image.slices_.push_back(std::move(slice));
      return std::move(image);
    });
  }
  const macho::FatTable table(file);
  const auto entries = readFatTable(file, table);
  if (!entries) return entries.error();
  image.tableEnd_ = table.size();
  for (const macho::FatEntry& entry : *entries) {
    auto slice = readFatSlice(file, entry);
    if (!slice) return slice.error();
    if (std::ranges::count(image.slices_, slice->architecture, &Slice::architecture) > 0) {
      return failure("two slices are named " + slice->architecture);
    }
    image.slices_.push_back(std::move(*slice));
  }
  return image;
}

Bytes MachOFile::signatureArea(const Slice& slice) const {
  if (!slice.signature) return {};
  return bytesOf(slice).subspan(slice.signature->data.offset, slice.signature->data.size);
}

std::optional<Bytes> MachOFile::embeddedInfoPlist(const Slice& slice) const {
  if (!slice.embeddedInfoPlist) return std::nullopt;
  return bytesOf(slice).subspan(slice.embeddedInfoPlist->offset, slice.embeddedInfoPlist->size);
}

bool looksLikeMachO(Bytes start) {
  const auto magic = foundation::readAt<std::uint32_t>(start, 0);
  if (!magic) return false;
  if (*magic == macho::MH_MAGIC || *magic == macho::MH_MAGIC_64) return true;
  return isUniversalMagic(*magic) && isPlausible(macho::FatTable(start));
}

std::string architectureName(std::uint32_t cpuType, std::uint32_t cpuSubtype) {
  if (const auto* known = macho::architectureOf(static_cast<std::int32_t>(cpuType), cpuSubtype)) {
    return known->name;
  }
  const std::uint32_t subtype = cpuSubtype & ~macho::CPU_SUBTYPE_MASK;
  return "cputype " + std::to_string(cpuType) + " subtype " + std::to_string(subtype);
}

}  // namespace toolchain

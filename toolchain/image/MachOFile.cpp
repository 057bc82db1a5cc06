#include "toolchain/image/MachOFile.h"

#include <algorithm>
#include <bit>

#include "macho/Architectures.h"
#include "macho/Definitions.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/private/SliceParser.h"

namespace toolchain {

static_assert(std::endian::native == std::endian::little, "records are read in the host's order");

namespace {

// A Java class has its version, 45 and up, where a universal file counts its slices.
constexpr std::uint32_t kMaximumSlices = 29;

/// One entry of a universal file's table.
struct FatEntry {
  Architecture architecture;
  Extent file;
  /// Logarithm of what `file.offset` says it is a multiple of.
  std::uint32_t alignment = 0;
};

template <class Record>
Result<std::vector<FatEntry>> fatEntries(Bytes file, std::uint32_t count) {
  std::vector<FatEntry> entries;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto raw =
        foundation::readAt<Record>(file, sizeof(macho::fat_header) + i * sizeof(Record));
    const std::string where = "slice " + std::to_string(i) + " of " + std::to_string(count);
    if (!raw) return failure(where + ": its table entry runs past the end of the file");
    const Record record = macho::byteSwapped(*raw);
    const FatEntry entry{
        {static_cast<std::uint32_t>(record.cputype), static_cast<std::uint32_t>(record.cpusubtype)},
        {record.offset, record.size},
        record.align};
    if (!foundation::slice(file, entry.file.offset, entry.file.size)) {
      return failure(where + ": offset " + std::to_string(entry.file.offset) + " and size " +
                     std::to_string(entry.file.size) + " lie outside the file of " +
                     std::to_string(file.size()));
    }
    entries.push_back(entry);
  }
  return entries;
}

Result<> checkDisjoint(const std::vector<FatEntry>& entries, std::size_t tableEnd) {
  std::vector<Extent> extents = {{0, tableEnd}};
  for (const FatEntry& entry : entries) extents.push_back(entry.file);
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
  for (std::size_t i = 1; i < extents.size(); ++i) {
    const Extent& before = extents[i - 1];
    if (extents[i].offset - before.offset < before.size) {
      return failure("slice at offset " + std::to_string(extents[i].offset) +
                     " overlaps what begins at " + std::to_string(before.offset));
    }
  }
  return {};
}

struct FatTable {
  std::vector<FatEntry> entries;
  std::uint64_t end = 0;
};

Result<FatTable> readFatTable(Bytes file, bool is64) {
  const auto header = foundation::readAt<macho::fat_header>(file, 0);
  if (!header) return failure("universal header is cut off");
  const std::uint32_t count = macho::byteSwapped(*header).nfat_arch;
  if (count == 0 || count > kMaximumSlices) {
    return failure("not a Mach-O file: its universal header counts " + std::to_string(count) +
                   " slices");
  }
  auto entries =
      is64 ? fatEntries<macho::fat_arch_64>(file, count) : fatEntries<macho::fat_arch>(file, count);
  if (!entries) return entries.error();
  const std::size_t entrySize = is64 ? sizeof(macho::fat_arch_64) : sizeof(macho::fat_arch);
  const std::size_t end = sizeof(macho::fat_header) + count * entrySize;
  if (const auto disjoint = checkDisjoint(*entries, end); !disjoint) return disjoint.error();
  return FatTable{std::move(*entries), end};
}

Result<Slice> readFatSlice(Bytes file, const FatEntry& entry) {
  const std::string name =
      architectureName(entry.architecture.cpuType, entry.architecture.cpuSubtype);
  constexpr std::uint32_t kMaximumAlignment = 31;
  if (entry.alignment > kMaximumAlignment ||
      entry.file.offset % (std::uint64_t{1} << entry.alignment) != 0) {
    return failure(name + ": offset " + std::to_string(entry.file.offset) +
                   " is no multiple of 2^" + std::to_string(entry.alignment));
  }
  auto slice = readSlice(file, entry.file);
  if (!slice) return within(name, slice.error());
  // Capability bits may differ.
  if (slice->architecture != name) {
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
  if (*magic != macho::FAT_CIGAM && *magic != macho::FAT_CIGAM_64) {
    auto slice = readSlice(file, {0, file.size()});
    if (!slice) return slice.error();
    image.slices_.push_back(std::move(*slice));
    return image;
  }
  const auto table = readFatTable(file, *magic == macho::FAT_CIGAM_64);
  if (!table) return table.error();
  image.tableEnd_ = table->end;
  for (const FatEntry& entry : table->entries) {
    auto slice = readFatSlice(file, entry);
    if (!slice) return slice.error();
    for (const Slice& other : image.slices_) {
      if (other.architecture == slice->architecture) {
        return failure("two slices are named " + other.architecture);
      }
    }
    image.slices_.push_back(std::move(*slice));
  }
  return image;
}

Bytes MachOFile::signatureArea(const Slice& slice) const {
  if (!slice.signature) return {};
  return bytesOf(slice).subspan(slice.signature->data.offset, slice.signature->data.size);
}

bool MachOFile::isSigned() const {
  return std::any_of(slices_.begin(), slices_.end(),
                     [](const Slice& slice) { return slice.signature.has_value(); });
}

bool looksLikeMachO(Bytes start) {
  const auto magic = foundation::readAt<std::uint32_t>(start, 0);
  if (!magic) return false;
  if (*magic == macho::MH_MAGIC || *magic == macho::MH_MAGIC_64) return true;
  if (*magic != macho::FAT_CIGAM && *magic != macho::FAT_CIGAM_64) return false;
  const auto header = foundation::readAt<macho::fat_header>(start, 0);
  if (!header) return false;
  const std::uint32_t count = macho::byteSwapped(*header).nfat_arch;
  return count > 0 && count <= kMaximumSlices;
}

std::string architectureName(std::uint32_t cpuType, std::uint32_t cpuSubtype) {
  if (const auto* known = macho::architectureOf(static_cast<std::int32_t>(cpuType), cpuSubtype)) {
    return known->name;
  }
  const std::uint32_t subtype = cpuSubtype & ~macho::CPU_SUBTYPE_MASK;
  return "cputype " + std::to_string(cpuType) + " subtype " + std::to_string(subtype);
}

std::optional<Architecture> architectureNamed(std::string_view name) {
  const auto* known = macho::architectureNamed(name);
  if (!known) return std::nullopt;
  return Architecture{static_cast<std::uint32_t>(known->cpuType), known->cpuSubtype};
}

}  // namespace toolchain

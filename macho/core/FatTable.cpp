#include "macho/core/FatTable.h"

#include "macho/core/Definitions.h"

namespace macho {
namespace {

template <class Record>
std::optional<FatEntry> entryAt(foundation::Bytes file, std::uint32_t index) {
  const auto stored =
      foundation::readAt<Record>(file, sizeof(fat_header) + std::uint64_t{index} * sizeof(Record));
  if (!stored) return std::nullopt;
  const Record arch = byteSwapped(*stored);
  return FatEntry{arch.cputype, static_cast<std::uint32_t>(arch.cpusubtype), arch.offset, arch.size,
                  arch.align};
}

}  // namespace

FatTable::FatTable(foundation::Bytes file) : file_(file) {
  const auto header = foundation::readAt<fat_header>(file, 0);
  if (!header) return;
  is64Bit_ = header->magic == FAT_CIGAM_64;
  count_ = byteSwapped(header->nfat_arch);
}

std::uint64_t FatTable::size() const {
  return sizeof(fat_header) +
         std::uint64_t{count_} * (is64Bit_ ? sizeof(fat_arch_64) : sizeof(fat_arch));
}

std::optional<FatEntry> FatTable::entry(std::uint32_t index) const {
  return is64Bit_ ? entryAt<fat_arch_64>(file_, index) : entryAt<fat_arch>(file_, index);
}

}  // namespace macho

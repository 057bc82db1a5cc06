#pragma once

#include <cstdint>
#include <optional>

#include "foundation/base/Bytes.h"

namespace macho {

/// An entry of a universal file's table, as found: nothing says that it lies inside the file.
struct FatEntry {
  std::int32_t cpuType = 0;
  std::uint32_t cpuSubtype = 0;  ///< capability bits included
  std::uint64_t offset = 0;      ///< from the start of the file
  std::uint64_t size = 0;
  std::uint32_t alignment = 0;  ///< as a power of two
};

/// The table of slices at the start of a universal file. It is big-endian whatever the order of the
/// magic; which magics make a universal file is for the caller to decide. Refers to the file's
/// bytes.
class FatTable {
 public:
  explicit FatTable(foundation::Bytes file);

  /// As the header claims; 0 when the file ends within the header.
  [[nodiscard]] std::uint32_t count() const { return count_; }
  /// Bytes of the header and as many entries as it claims.
  [[nodiscard]] std::uint64_t size() const;
  /// Absent where the file ends within the entry.
  [[nodiscard]] std::optional<FatEntry> entry(std::uint32_t index) const;

 private:
  foundation::Bytes file_;
  bool is64Bit_ = false;
  std::uint32_t count_ = 0;
};

}  // namespace macho

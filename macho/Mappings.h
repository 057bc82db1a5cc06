#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>

#include "foundation/base/Result.h"

/// The mappings of open files by address, so that a bare pointer into one of them is enough to know
/// how far it may be read. All functions are safe from any thread.
namespace macho {

/// Makes the mapping of the file at `path` known, and watches it for being cut short; it must be
/// forgotten before its memory is given back.
void rememberMapping(const void* start, std::uint64_t size, const char* path);
void forgetMapping(const void* start);
/// Fails, naming the file, when a known mapping was cut short while it was read.
foundation::Result<> checkMapping(const void* start);

/// How far memory may be read: the known mapping around an address, or all memory when the address
/// is in none.
class Reach {
 public:
  explicit Reach(const void* address);

  /// Bytes of the mapping; 0 when it is not known.
  [[nodiscard]] std::uint64_t size() const { return known_ ? end_ - start_ : 0; }
  [[nodiscard]] bool holds(const void* address, std::uint64_t size) const;
  /// Bytes from `address` to the end; 0 when it lies outside.
  [[nodiscard]] std::uint64_t left(const void* address) const;
  /// `address` moved on, or null when that is at or beyond the end.
  [[nodiscard]] const std::byte* advance(const void* address, std::uint64_t offset) const;

  template <class T>
  requires std::is_trivially_copyable_v<T>
  [[nodiscard]] std::optional<T> read(const void* address, std::uint64_t offset = 0) const {
    const std::byte* const from = advance(address, offset);
    if (!from || !holds(from, sizeof(T))) return std::nullopt;
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
  }

 private:
  std::uintptr_t start_ = 0;
  std::uintptr_t end_ = UINTPTR_MAX;
  bool known_ = false;
};

}  // namespace macho

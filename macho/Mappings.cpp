#include "macho/Mappings.h"

#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>

#include "foundation/file/MappingGuard.h"

namespace macho {
namespace {

struct Mapping {
  std::uintptr_t end;
  foundation::MappingGuard guard;
};

struct Registry {
  std::shared_mutex mutex;
  /// By their start.
  std::map<std::uintptr_t, Mapping> mappings;
};

/// Never destroyed: files may be closed while the process ends.
Registry& registry() {
  static auto* const shared = new Registry;
  return *shared;
}

std::uintptr_t number(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

}  // namespace

void rememberMapping(const void* start, std::uint64_t size, const char* path) {
  const foundation::Bytes bytes(static_cast<const std::byte*>(start),
                                static_cast<std::size_t>(size));
  const std::unique_lock lock(registry().mutex);
  registry().mappings.insert_or_assign(
      number(start), Mapping{number(start) + bytes.size(), foundation::MappingGuard(bytes, path)});
}

void forgetMapping(const void* start) {
  const std::unique_lock lock(registry().mutex);
  registry().mappings.erase(number(start));
}

foundation::Result<> checkMapping(const void* start) {
  const std::shared_lock lock(registry().mutex);
  const auto found = registry().mappings.find(number(start));
  return found == registry().mappings.end() ? foundation::Result<>() : found->second.guard.check();
}

Reach::Reach(const void* address) {
  const std::shared_lock lock(registry().mutex);
  const auto& mappings = registry().mappings;
  const auto after = mappings.upper_bound(number(address));
  if (after == mappings.begin()) return;
  const std::uintptr_t start = std::prev(after)->first;
  const std::uintptr_t end = std::prev(after)->second.end;
  if (number(address) >= end) return;
  start_ = start;
  end_ = end;
  known_ = true;
}

std::uint64_t Reach::left(const void* address) const {
  const std::uintptr_t at = number(address);
  return at < start_ || at > end_ ? 0 : end_ - at;
}

bool Reach::holds(const void* address, std::uint64_t size) const {
  return address && size <= left(address);
}

const std::byte* Reach::advance(const void* address, std::uint64_t offset) const {
  if (!address || offset >= left(address)) return nullptr;
  return static_cast<const std::byte*>(address) + offset;
}

}  // namespace macho

#include "macho/Mappings.h"

#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>

namespace macho {
namespace {

struct Registry {
  std::shared_mutex mutex;
  std::map<std::uintptr_t, std::uintptr_t> ends;
};

/// Never destroyed: files may be closed while the process ends.
Registry& registry() {
  static auto* const shared = new Registry;
  return *shared;
}

std::uintptr_t number(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

}  // namespace

void rememberMapping(const void* start, std::uint64_t size) {
  const std::unique_lock lock(registry().mutex);
  registry().ends[number(start)] = number(start) + static_cast<std::uintptr_t>(size);
}

void forgetMapping(const void* start) {
  const std::unique_lock lock(registry().mutex);
  registry().ends.erase(number(start));
}

Reach::Reach(const void* address) {
  const std::shared_lock lock(registry().mutex);
  const auto& ends = registry().ends;
  const auto after = ends.upper_bound(number(address));
  if (after == ends.begin()) return;
  const auto [start, end] = *std::prev(after);
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

#include "macho/private/Mappings.h"

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace macho {
namespace {

struct Registry {
  std::shared_mutex mutex;
  /// By their first byte.
  std::map<const void*, foundation::MappedFile, std::less<>> files;

  foundation::Bytes around(const void* address) {
    const std::shared_lock lock(mutex);
    const auto after = files.upper_bound(address);
    if (after == files.begin()) return {};
    const foundation::Bytes bytes = std::prev(after)->second.bytes();
    return std::less<>()(address, bytes.data() + bytes.size()) ? bytes : foundation::Bytes();
  }
};

/// Never destroyed: files may be closed while the process ends.
Registry& registry() {
  static auto* const shared = new Registry;
  return *shared;
}

}  // namespace

void rememberMapping(foundation::MappedFile file) {
  const std::unique_lock lock(registry().mutex);
  const void* const start = file.bytes().data();
  registry().files.insert_or_assign(start, std::move(file));
}

void forgetMapping(const void* start) {
  const std::unique_lock lock(registry().mutex);
  registry().files.erase(start);
}

foundation::Result<> checkMapping(const void* start) {
  const std::shared_lock lock(registry().mutex);
  const auto found = registry().files.find(start);
  return found == registry().files.end() ? foundation::Result<>() : found->second.checkIntact();
}

foundation::Bytes readableFrom(const void* address) {
  const auto* const start = static_cast<const std::byte*>(address);
  if (!start) return {};
  const foundation::Bytes mapping = registry().around(start);
  if (mapping.empty()) return {start, UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(start)};
  return mapping.subspan(static_cast<std::size_t>(start - mapping.data()));
}

std::uint64_t mappingSize(const void* address) { return registry().around(address).size(); }

}  // namespace macho

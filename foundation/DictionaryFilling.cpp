#include "foundation/DictionaryFilling.h"

#include <array>
#include <cstdlib>
#include <set>
#include <string>

#include <plist/plist.h>

#include "foundation/Handle.h"

namespace foundation {

namespace {

/// As libplist has them, in number and in what it sorts by.
constexpr std::size_t kRows = 4096;

std::size_t rowOf(std::string_view key) {
  std::uint32_t hash = 5381;
  for (const char c : key)
    hash = hash * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
  return hash % kRows;
}

/// Without escapes, literal sections and what libplist does not see behind a zero. One that cannot
/// be read ends libplist's work, so it does not matter.
std::string unescaped(std::string_view key) {
  key = key.substr(0, key.find('\0'));
  if (key.find_first_of("&<") == std::string_view::npos) return std::string(key);
  const std::string list = "<plist><string>" + std::string(key) + "</string></plist>";
  plist_t node = nullptr;
  plist_from_xml(list.data(), static_cast<std::uint32_t>(list.size()), &node);
  const Handle<void, plist_free> owner(node);
  const char* text = node ? plist_get_string_ptr(node, nullptr) : nullptr;
  return text ? text : std::string(key);
}

}  // namespace

std::uint64_t stepsToFillDictionary(const std::vector<std::string_view>& keys) {
  std::uint64_t steps = 0;
  std::array<std::uint64_t, kRows> rows{};
  std::set<std::string, std::less<>> seen;
  for (const std::string_view escaped : keys) {
    std::string key = unescaped(escaped);
    std::uint64_t& row = rows[rowOf(key)];
    steps += row;
    if (seen.insert(std::move(key)).second) {
      ++row;
    } else {
      steps += seen.size();
    }
  }
  return steps;
}

}  // namespace foundation

#include "foundation/DictionaryFilling.h"

#include <array>
#include <cstdlib>
#include <set>

#include <plist/plist.h>

#include "foundation/Format.h"
#include "foundation/Handle.h"

namespace foundation {

namespace {

/// Up to here libplist keeps no table, and many small dictionaries take linear time.
constexpr std::size_t kAlwaysAllowedKeys = 250;

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

/// One dictionary on its way.
class DictionaryFilling::Table {
 public:
  void addNew(std::string_view key) {
    steps_ += rows_[rowOf(key)]++;
    allowed_ += key.size() + kOthersOfAnEntry;
    ++size_;
  }
  void addRepeated(std::string_view key) { steps_ += rows_[rowOf(key)] + size_; }

  [[nodiscard]] std::uint64_t steps() const { return steps_; }
  [[nodiscard]] std::uint64_t allowed() const { return allowed_; }

 private:
  /// As libplist has them, in number and in what it sorts by.
  static constexpr std::size_t kRows = 4096;
  static std::size_t rowOf(std::string_view key) {
    std::uint32_t hash = 5381;
    for (const char c : key) {
      hash = hash * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
    }
    return hash % kRows;
  }
  /// Bytes of XML around a key, and of a small value.
  static constexpr std::uint64_t kOthersOfAnEntry = 32;

  std::array<std::uint64_t, kRows> rows_{};
  std::uint64_t steps_ = 0;
  std::uint64_t allowed_ = 0;
  std::uint64_t size_ = 0;
};

bool DictionaryFilling::add(const Table& table) {
  steps_ += table.steps();
  allowed_ += table.allowed();
  return steps_ <= allowed_;
}

bool DictionaryFilling::add(const Dictionary& filled) {
  if (filled.size() <= kAlwaysAllowedKeys) return true;
  Table table;
  for (const auto& [key, value] : filled) table.addNew(key);
  return add(table);
}

bool DictionaryFilling::addEscaped(const std::vector<std::string_view>& keys) {
  if (keys.size() <= kAlwaysAllowedKeys) return true;
  Table table;
  std::set<std::string, std::less<>> seen;
  for (const std::string_view escaped : keys) {
    const auto [key, isNew] = seen.insert(unescaped(escaped));
    if (isNew) {
      table.addNew(*key);
    } else {
      table.addRepeated(*key);
    }
  }
  return add(table);
}

std::string DictionaryFilling::complaint(std::size_t keys) {
  return format("the %llu keys of a dictionary are too many, repeated or too much alike",
                std::uint64_t{keys});
}

}  // namespace foundation

#include "foundation/format/private/DictionaryFilling.h"

#include <array>
#include <set>

#include "foundation/base/Format.h"

namespace foundation {

namespace {

/// Up to here libplist keeps no table, and many small dictionaries take linear time.
constexpr std::size_t kAlwaysAllowedKeys = 250;

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

bool DictionaryFilling::add(const std::vector<std::string>& keys) {
  if (keys.size() <= kAlwaysAllowedKeys) return true;
  Table table;
  std::set<std::string_view> seen;
  for (const std::string& key : keys) {
    if (seen.insert(key).second) {
      table.addNew(key);
    } else {
      table.addRepeated(key);
    }
  }
  return add(table);
}

std::string DictionaryFilling::complaint(std::size_t keys) {
  return format("the %llu keys of a dictionary are too many, repeated or too much alike",
                std::uint64_t{keys});
}

}  // namespace foundation

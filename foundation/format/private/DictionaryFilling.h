#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Value.h"

namespace foundation {

/// Adds up, over one property list, how many keys libplist looks at while it fills dictionaries
/// from XML. It searches the keys that are there for each new one, in a table of fixed size whose
/// rows anyone can fill with keys made for it, and for one that is there already it walks through
/// the whole dictionary. The limit depends on the keys alone and is the same for every form of a
/// list, so that what can be read can also be written as XML and read again.
class DictionaryFilling {
 public:
  /// False once the list takes far more than linear time.
  bool add(const Dictionary& filled);
  /// The same for the keys of an XML text in their order, before there is a dictionary.
  bool add(const std::vector<std::string>& keys);
  /// What is wrong with a dictionary of so many keys that was not added.
  static std::string complaint(std::size_t keys);

 private:
  class Table;
  bool add(const Table& table);

  std::uint64_t steps_ = 0;
  /// Some hundredths of a second, and what larger dictionaries add to it.
  std::uint64_t allowed_ = 2'000'000;
};

}  // namespace foundation

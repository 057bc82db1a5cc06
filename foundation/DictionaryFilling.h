#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace foundation {

/// About how many keys libplist looks at when it puts these, as they stand in an XML text and in
/// this order, into one dictionary. It searches the keys that are there for each new one, in a
/// table of fixed size whose rows anyone can fill with keys made for it, and for one that is there
/// already it walks through the whole dictionary.
std::uint64_t stepsToFillDictionary(const std::vector<std::string_view>& keys);

}  // namespace foundation

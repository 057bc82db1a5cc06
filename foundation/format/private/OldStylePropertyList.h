#pragma once

#include <string_view>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

namespace foundation {

/// Reads the old text form from UTF-8 text, in one pass. Strings, data, arrays and dictionaries are
/// all it has; pairs without outer braces make a dictionary, and so does a text without any. Fails
/// with the line.
Result<Value> parseOldStylePropertyList(std::string_view text);

}  // namespace foundation

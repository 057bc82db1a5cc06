#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"

/// Decoding that the readers of this folder share.
namespace foundation {

struct CodePoint {
  char32_t value = 0;
  /// Bytes that it takes in UTF-8.
  std::size_t length = 0;
};

/// The code point at the start of `text`; absent when there is none or it is ill-formed.
std::optional<CodePoint> firstCodePoint(std::string_view text);

/// Text in UTF-8, UTF-16 or UTF-32, as a byte-order mark or, without one, the places of the zero
/// bytes in its first character say. The view refers to the bytes where they are UTF-8 already, and
/// to `storage` else; a mark is left out. Absent when UTF-16 or UTF-32 units are cut off or are no
/// characters; UTF-8 is not checked.
std::optional<std::string_view> unicodeText(Bytes bytes, std::string& storage);

}  // namespace foundation

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"

/// Decoding shared by the readers of text formats.
namespace foundation {

struct CodePoint {
  char32_t value = 0;
  /// In bytes of UTF-8.
  std::size_t length = 0;
};

/// Absent when `text` is empty or starts with an ill-formed sequence.
std::optional<CodePoint> firstCodePoint(std::string_view text);

/// UTF-8, UTF-16 or UTF-32 as UTF-8, without byte-order mark. Without a mark, the zero bytes in the
/// first character give the encoding. The view refers to `bytes` when they are UTF-8 already, else
/// to `storage`. Absent when UTF-16 or UTF-32 is truncated or ill-formed; UTF-8 is not checked.
std::optional<std::string_view> unicodeText(Bytes bytes, std::string& storage);

}  // namespace foundation

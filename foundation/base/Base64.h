#pragma once

#include <span>
#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"

namespace foundation {

/// RFC 4648 text with padding, on one line; appended to `out`.
void appendBase64(std::string& out, Bytes bytes);

/// Fills `out`; false unless `text` is exactly what `appendBase64` makes of `out.size()` bytes.
bool decodeBase64(std::string_view text, std::span<std::byte> out);

}  // namespace foundation

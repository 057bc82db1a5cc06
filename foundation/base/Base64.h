#pragma once

#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"

namespace foundation {

/// RFC 4648 text with padding, on one line; appended to `out`.
void appendBase64(std::string& out, Bytes bytes);

/// Characters of other kinds are passed over, and so are digits at the end that make no group of
/// four.
std::string decodeBase64(std::string_view text);

}  // namespace foundation

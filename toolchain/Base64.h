#pragma once

#include <string>

#include "foundation/Bytes.h"

namespace toolchain {

/// RFC 4648 text with padding, on one line; appended to `out`.
void appendBase64(std::string& out, foundation::Bytes bytes);

}  // namespace toolchain

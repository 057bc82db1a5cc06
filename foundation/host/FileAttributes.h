#pragma once

#include <string_view>

#include "foundation/base/Result.h"

namespace foundation {

/// Copies permissions, extended attributes and, where this user may, the owner from one open file
/// to another. Attributes that the target's file system cannot store are left out. `path` is for
/// the error text.
Result<> copyAttributes(int source, int target, std::string_view path);

}  // namespace foundation

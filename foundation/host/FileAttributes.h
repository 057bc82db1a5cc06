#pragma once

#include <string_view>

#include "foundation/base/Result.h"

namespace foundation {

/// Gives an open file the permissions, extended attributes and, where this user may, the owner of
/// another. Attributes that the target's file system cannot hold are left out. `path` is for the
/// message.
Result<> copyAttributes(int source, int target, std::string_view path);

}  // namespace foundation

#pragma once

#include <string_view>

/// True when this process or one of its ancestors, up to the system's first process, has this
/// command name. The kernel truncates command names to 15 or 16 bytes, so a longer `name` is never
/// found. A failed query is repeated until it succeeds.
bool isProcessNameInHierarchy(std::string_view name);

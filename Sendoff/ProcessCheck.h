#pragma once

#include <string_view>

/// True when this process or any of its ancestors, up to the system's first process, has exactly
/// this short command name. The kernel cuts such names (at 15 or 16 bytes), so only short ones can
/// be found. A query that fails is repeated until it succeeds.
bool isProcessNameInHierarchy(std::string_view name);

#pragma once

#include <string>
#include <string_view>

/// Escapes a query key or value in two passes: first what no URL can hold, a literal "%" included;
/// then every one of `!*'"();:@&=+$,/?#[] `, leaving the escapes of the first pass alone.
std::string escapeURLString(std::string_view text);

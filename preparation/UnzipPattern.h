#pragma once

#include <string>
#include <string_view>

/// The archive argument that makes `unzip` open exactly the file at `path`.
///
/// `unzip` takes the last component of that argument for a pattern as soon as a "*", "?" or "["
/// that no backslash precedes stands anywhere in it, the folders included, which themselves are
/// always taken as they are. Without one, the whole argument is opened as it stands, backslashes
/// and all, so a backslash alone cannot protect a character; brackets around it do.
std::string unzipPatternForPath(std::string_view path);

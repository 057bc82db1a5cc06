#pragma once

#include <string>

/// Removes a file, a symlink (not followed) or a folder with its contents. A failure, such as a
/// missing item, is written to the system log.
bool deleteFile(const std::string& path);

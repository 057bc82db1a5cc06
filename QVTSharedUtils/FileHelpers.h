#pragma once

#include <string>

/// Removes the file or the folder with all it holds; links are removed, not followed. True when it
/// is gone by this call; a failure (nothing at the path is one) is told in the system log.
bool deleteFile(const std::string& path);

#pragma once

#include <filesystem>
#include <optional>
#include <string>

/// `path` with `tools` at its end, so that the host's tools win. An absent or empty `path` counts
/// as "/usr/bin:/bin".
std::string pathWithSigningTools(const std::optional<std::string>& path,
                                 const std::filesystem::path& tools);

/// Appends `../libexec/sendoff`, relative to the program's folder, to the environment's PATH if it
/// exists. Does nothing in a build for a host with Xcode. Not thread-safe.
void appendSigningToolsToPath();

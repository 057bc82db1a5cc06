#pragma once

#include <filesystem>
#include <optional>
#include <string>

/// PATH with `tools` at its end, so that a tool of the host always wins. An absent or empty PATH
/// counts as "/usr/bin:/bin".
std::string pathWithSigningTools(const std::optional<std::string>& path,
                                 const std::filesystem::path& tools);

/// Appends the signing tools that belong to this program (`../libexec/sendoff` beside its own
/// folder) to the environment's PATH, where that folder exists; nothing on a host with Xcode.
void appendSigningToolsToPath();

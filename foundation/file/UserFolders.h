#pragma once

#include <string>
#include <string_view>

#include "foundation/base/Result.h"

/// The folders that belong to the user who runs the program.
namespace foundation::FileManager {

/// The user's temporary folder, absolute and ending in "/": `TMPDIR` if set, else a folder in /tmp
/// named after the user. That is made on first use; it is an error if it is a link or if others may
/// write to it. If it belongs to another user, a new folder with an unguessable name is used until
/// this process ends, which the system log reports.
Result<std::string> temporaryDirectory();
/// Removes the folder with the unguessable name if it contains nothing but empty folders. `exit`
/// does the same; a signal or `_exit` does not.
void removeSubstituteIfEmpty();

/// `HOME` of this process, or else of its parent if that runs as the same user, or else the home in
/// the user database.
std::string homeDirectory();

/// Replaces the tilde in "~" and "~/…" by the user's home; other paths stay as they are.
std::string expandingTilde(std::string_view path);

}  // namespace foundation::FileManager

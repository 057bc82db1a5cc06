#pragma once

#include <string>
#include <string_view>

#include "foundation/base/Result.h"

/// The folders that belong to the user who runs the program.
namespace foundation::FileManager {

/// The user's temporary folder, absolute and ending in "/": `TMPDIR` if set, else a folder of this
/// user's own below the system's, which is made on first use and refused when it is a link, or when
/// others may write to it. Where another user has taken its name, a new folder of a name that
/// nobody can guess is used until this process ends, and the system log tells of it.
Result<std::string> temporaryDirectory();
/// Removes the folder with a name that nobody can guess, if there is nothing but empty folders in
/// it. The end of the process does the same, unless a signal or a call like `_exit` ends it.
void removeSubstituteIfEmpty();

/// The user's home: `HOME`; without it the parent process's, if that is the same user's; else the
/// user database's.
std::string homeDirectory();

/// "~" and "~/…" with the user's home in place of the tilde; other texts unchanged.
std::string expandingTilde(std::string_view path);

}  // namespace foundation::FileManager

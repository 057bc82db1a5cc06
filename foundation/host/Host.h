#pragma once

#include <optional>
#include <string>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Value.h"

/// What each host answers in its own way. Only foundation's own sources include this; every folder
/// below host/ defines all of it, and all that the headers beside this one declare.
namespace foundation::host {

/// The property list that the build put into this executable; empty without one. It lives as long
/// as the process.
Bytes embeddedInfo();

/// Makes the new file `name` in `folder` with the content of the regular file `source`, sharing
/// its blocks where the file system can. Returns it open for writing, owner-accessible; permissions
/// and times are the caller's business. Empty with errno set on failure (EEXIST when there is one
/// already; a file that was begun is removed).
FileDescriptor copyFile(int source, int folder, const char* name);

/// The birth time of the item itself, links not followed; absent where the file system keeps none.
std::optional<Date> birthTime(const char* path);
struct timespec accessTime(const struct stat& details);
struct timespec modificationTime(const struct stat& details);

/// Path of the running program, links resolved; empty when the system does not tell.
std::string executablePath();

/// HOME in the environment of the parent process; absent when that process is another user's, has
/// none or cannot be read.
std::optional<std::string> parentHome();

/// Makes the pipe as large as the system allows this user; failures leave it as it is.
void enlargePipe(int pipe);

/// Has the child close all but its three standard streams. Returns 0 or an errno value.
int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& flags);

}  // namespace foundation::host

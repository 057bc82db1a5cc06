#pragma once

#include <optional>
#include <string>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Value.h"

/// What each host does in its own way. Only foundation's own sources include this; every folder
/// below host/ defines all of it, and everything declared in the other headers here.
namespace foundation::host {

/// The property list embedded in this executable by the build; empty if there is none. Lives as
/// long as the process.
Bytes embeddedInfo();

/// Creates the file `name` in `folder` with the content of the regular file `source`, sharing its
/// blocks where the file system can. Returns it open for writing and accessible to its owner only;
/// permissions and times are left to the caller. Empty with errno set on failure (EEXIST if the
/// name is taken); a partial copy is removed.
FileDescriptor copyFile(int source, int folder, const char* name);

/// Does not follow links; absent where the file system records no birth time.
std::optional<Date> birthTime(const char* path);
struct timespec accessTime(const struct stat& details);
struct timespec modificationTime(const struct stat& details);

/// Path of the running program, links resolved; empty when unknown.
std::string executablePath();

/// HOME in the environment of the parent process; absent if that runs as another user, has no HOME
/// or cannot be read.
std::optional<std::string> parentHome();

/// Makes the pipe as large as the system allows this user; failures are ignored.
void enlargePipe(int pipe);

/// Makes the child close everything except its three standard streams. Returns 0 or an errno value.
int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& flags);

}  // namespace foundation::host

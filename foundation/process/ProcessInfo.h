#pragma once

#include <map>
#include <optional>
#include <string>

#include "foundation/host/ProcessTable.h"

namespace foundation {

using Environment = std::map<std::string, std::string, std::less<>>;

namespace ProcessInfo {

/// The environment of this process at the time of the call.
Environment environment();
/// One variable; absent when it is not set (an empty one is set).
std::optional<std::string> environmentValue(const std::string& name);

/// A new text on every call, unlike any other made on this or another machine; safe in file names.
std::string globallyUniqueString();
/// A random UUID in its 36-character upper-case form.
std::string newUUIDString();
/// The standard text of these 16 bytes: upper case, dashed 8-4-4-4-12.
std::string uuidString(const unsigned char (&bytes)[16]);

/// Path of the running program, links resolved; empty when the system does not tell.
std::string executablePath();

}  // namespace ProcessInfo

/// For the start of a program that holds secrets, before it has other threads: from here on this
/// process and its children leave no core dump, and no TLS library writes the keys of a connection
/// to the file that `SSLKEYLOGFILE` names.
void keepSecretsInMemory();

}  // namespace foundation

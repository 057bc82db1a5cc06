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
/// The same, but absent for an empty variable too.
std::optional<std::string> nonEmptyEnvironmentValue(const std::string& name);

/// A new text on every call, unique across machines; safe in file names.
std::string globallyUniqueString();
/// A random UUID in its 36-character upper-case form.
std::string newUUIDString();
/// These 16 bytes in upper-case hexadecimal, dashed 8-4-4-4-12.
std::string uuidString(const unsigned char (&bytes)[16]);

/// Path of the running program, links resolved; empty when unknown.
std::string executablePath();

}  // namespace ProcessInfo

/// To be called at the start of a program that holds secrets, before it has other threads. From
/// then on this process and its children leave no core dump, and no TLS library writes session keys
/// to the file that `SSLKEYLOGFILE` names.
void keepSecretsInMemory();

/// Opens /dev/null on each closed descriptor from 0 to 2. Otherwise the next file opened would get
/// that number, and with it the log lines.
void openMissingStandardDescriptors();

}  // namespace foundation

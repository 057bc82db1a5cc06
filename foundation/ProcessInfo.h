#pragma once

#include <map>
#include <optional>
#include <string>

#include <sys/types.h>

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

/// The kernel's record of one process.
struct ProcessRecord {
  pid_t processIdentifier = 0;
  pid_t parentProcessIdentifier = 0;
  /// The kernel's short command name, at most 16 bytes; empty when unknown.
  std::string commandName;
};

/// Reads the record of one process. A process that is gone gives an empty record, as the kernel's
/// own query does, and id 0 has an empty record; absent only when reading failed.
std::optional<ProcessRecord> processRecord(pid_t processIdentifier);

/// Sets a descriptor aside with which `processRecord` reads when all others are in use. From then
/// on it never fails for want of descriptors, so that asking until it succeeds comes to an end:
/// where not even this one was to be had, a record is empty.
void reserveDescriptorForProcessRecords();

}  // namespace foundation

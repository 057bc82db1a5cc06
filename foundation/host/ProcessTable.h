#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace foundation {

/// The kernel's record of one process.
struct ProcessRecord {
  pid_t processIdentifier = 0;
  pid_t parentProcessIdentifier = 0;
  /// The kernel's short command name, at most 16 bytes; empty when unknown.
  std::string commandName;
};

/// Empty for a process that does not exist or that this user may not see, and for id 0. Absent only
/// when reading failed.
std::optional<ProcessRecord> processRecord(pid_t processIdentifier);

/// Sets a descriptor aside for `processRecord` to use when all others are taken. From then on it
/// never fails for lack of descriptors, so that retrying until it succeeds terminates: if even this
/// one is not available, the record is empty.
void reserveDescriptorForProcessRecords();

}  // namespace foundation

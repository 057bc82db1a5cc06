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

/// Reads the record of one process. A process that is gone gives an empty record, as the kernel's
/// own query does, and id 0 has an empty record; absent only when reading failed.
std::optional<ProcessRecord> processRecord(pid_t processIdentifier);

/// Sets a descriptor aside with which `processRecord` reads when all others are in use. From then
/// on it never fails for want of descriptors, so that asking until it succeeds comes to an end:
/// where not even this one was to be had, a record is empty.
void reserveDescriptorForProcessRecords();

}  // namespace foundation

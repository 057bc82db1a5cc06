#include "Sendoff/ProcessCheck.h"

#include <thread>

#include <unistd.h>

#include "foundation/process/ProcessInfo.h"

namespace {

foundation::ProcessRecord recordOf(pid_t process) {
  for (;;) {
    if (auto record = foundation::processRecord(process)) return *std::move(record);
    std::this_thread::yield();
  }
}

}  // namespace

bool isProcessNameInHierarchy(std::string_view name) {
  pid_t process = ::getpid();
  for (;;) {
    const foundation::ProcessRecord record = recordOf(process);
    if (!name.empty() && record.commandName == name) return true;
    // The system's first process, the kernel (0), or the empty record of a process that is gone.
    if (record.processIdentifier <= 1) return false;
    process = record.parentProcessIdentifier;
  }
}

#include "Sendoff/ProcessCheck.h"

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "foundation/process/ProcessInfo.h"

namespace {

foundation::ProcessRecord recordOf(pid_t process) {
  for (;;) {
    if (auto record = foundation::processRecord(process)) return *std::move(record);
    std::this_thread::yield();
  }
}

/// The names of this process and its ancestors, the nearest first. The walk ends with the system's
/// first process, with the kernel (id 0), or where a process is gone and its record is empty.
std::vector<std::string> namesInHierarchy() {
  std::vector<std::string> names;
  pid_t process = ::getpid();
  for (;;) {
    foundation::ProcessRecord record = recordOf(process);
    if (!record.commandName.empty()) names.push_back(std::move(record.commandName));
    process = record.parentProcessIdentifier;
    if (record.processIdentifier <= 1) return names;
  }
}

}  // namespace

bool isProcessNameInHierarchy(std::string_view name) {
  const std::vector<std::string> names = namesInHierarchy();
  return std::find(names.begin(), names.end(), name) != names.end();
}

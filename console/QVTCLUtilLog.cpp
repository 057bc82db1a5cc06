#include "console/QVTCLUtilLog.h"

#include <cerrno>
#include <chrono>
#include <string>

#include <unistd.h>

#include "foundation/process/SystemLog.h"

std::atomic<bool> debugMode{false};

namespace {

/// One `write`, repeated only when it was interrupted or took a part.
void writeToStandardOutput(std::string_view line) {
  while (!line.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, line.data(), line.size());
    if (count > 0) {
      line.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

}  // namespace

void writeConsoleLine(std::string_view message) {
  const auto now = std::chrono::floor<foundation::Date::duration>(std::chrono::system_clock::now());
  writeToStandardOutput(
      foundation::format("%@ sendoff Quorvantile: %@\n", foundation::localTimeStamp(now), message));
}

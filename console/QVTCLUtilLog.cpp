#include "console/QVTCLUtilLog.h"

#include <chrono>
#include <string>

#include <unistd.h>

#include "foundation/base/WriteAll.h"
#include "foundation/process/SystemLog.h"

std::atomic<bool> debugMode{false};

void writeConsoleLine(std::string_view message) {
  const auto now = std::chrono::floor<foundation::Date::duration>(std::chrono::system_clock::now());
  const std::string line =
      foundation::format("%@ sendoff Quorvantile: %@\n", foundation::localTimeStamp(now), message);
  foundation::writeAll(STDOUT_FILENO, line);
}

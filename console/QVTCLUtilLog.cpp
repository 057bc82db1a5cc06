#include "console/QVTCLUtilLog.h"

#include <string>

#include <unistd.h>

#include "foundation/base/WriteAll.h"
#include "foundation/process/SystemLog.h"

std::atomic<bool> debugMode{false};

void writeConsoleLine(std::string_view message) {
  const std::string line =
      foundation::format("%@ sendoff Quorvantile: %@\n",
                         foundation::localTimeStamp(foundation::currentDate()), message);
  foundation::writeAll(STDOUT_FILENO, line);
}

#include "foundation/process/SystemLog.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <unistd.h>

#include "foundation/base/Assertion.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/base/WriteAll.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

namespace {

const std::string& programName() {
  static const std::string name = [] {
    std::string last = lastPathComponent(ProcessInfo::executablePath());
    return last.empty() ? std::string("sendoff") : last;
  }();
  return name;
}

struct HeldLines {
  std::mutex mutex;
  /// Absent while there is no hold.
  std::optional<std::string> text;
};

/// Never destroyed, since lines may arrive until the process ends.
HeldLines& heldLines() {
  static auto& shared = *new HeldLines;
  return shared;
}

bool keepIfHeld(const std::string& line) {
  const std::lock_guard lock(heldLines().mutex);
  if (!heldLines().text) return false;
  *heldLines().text += line;
  return true;
}

/// The C library guards its copy of TZ, but thread checkers do not see its lock; hence our own.
struct tm localParts(std::time_t time) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  struct tm parts {};
  ::tzset();  // localtime_r alone need not notice that TZ has changed
  ::localtime_r(&time, &parts);
  return parts;
}

}  // namespace

void systemLogText(std::string_view text) {
  const std::string line = localTimeStamp(currentDate()) + " " + programName() + "[" +
                           std::to_string(::getpid()) + "] " + escapingControlCharacters(text) +
                           "\n";
  if (!keepIfHeld(line)) writeAll(STDERR_FILENO, line);
}

void systemLogOnce(const std::string& line) {
  static std::mutex mutex;
  static std::set<std::string> written;
  const std::lock_guard lock(mutex);
  if (written.insert(line).second) systemLogText(line);
}

SystemLogHold::SystemLogHold() {
  const std::lock_guard lock(heldLines().mutex);
  assertThat(!heldLines().text, "no other hold", {"SystemLogHold", "SystemLog.cpp", __LINE__});
  heldLines().text.emplace();
}

SystemLogHold::~SystemLogHold() {
  const std::lock_guard lock(heldLines().mutex);
  heldLines().text.reset();
}

std::string SystemLogHold::take() {
  const std::lock_guard lock(heldLines().mutex);
  return std::exchange(*heldLines().text, {});
}

std::string localTimeStamp(Date date) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
  const struct tm parts = localParts(seconds.time_since_epoch().count());
  char stamp[64];
  const std::size_t length = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &parts);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03d",
                static_cast<int>((milliseconds - seconds).count()));
  return std::string(stamp, length) + fraction;
}

}  // namespace foundation

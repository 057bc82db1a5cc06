#pragma once

#include <atomic>
#include <string_view>

#include "foundation/base/Format.h"

/// Whether `debugLog` writes anything. Set once at start.
extern std::atomic<bool> debugMode;

/// Writes `YYYY-MM-DD HH:MM:SS.mmm sendoff Quorvantile: message` and a newline to standard output,
/// in local time and in one write. The message is printed as is: callers escape untrusted values
/// (`foundation::escapingControlCharacters`). Failures (closed, full, no reader) are ignored.
void writeConsoleLine(std::string_view message);

/// The same for a message in the platform's format (`foundation::format`).
template <class... Arguments>
void QVTCLUtilLog(std::string_view format, const Arguments&... arguments) {
  writeConsoleLine(foundation::format(format, arguments...));
}

/// The same in debug mode; else nothing is written or formatted.
template <class... Arguments>
void debugLog(std::string_view format, const Arguments&... arguments) {
  if (debugMode) QVTCLUtilLog(format, arguments...);
}

#pragma once

#include <atomic>
#include <string_view>

#include "foundation/base/Format.h"

/// True when diagnostic lines are shown. Set once, by the driver, before any of them can be due.
extern std::atomic<bool> debugMode;

/// Writes `YYYY-MM-DD HH:MM:SS.mmm sendoff Quorvantile: message` and a newline to standard output,
/// in local time and in one write. The message is printed as it is given: who puts values from
/// outside into it escapes them (`foundation::escapingControlCharacters`). Failures are ignored: an
/// output that is closed, full or without a reader changes nothing for the caller.
void writeConsoleLine(std::string_view message);

/// The same for a message in the platform's format (`foundation::format`).
template <class... Arguments>
void QVTCLUtilLog(std::string_view format, const Arguments&... arguments) {
  writeConsoleLine(foundation::format(format, arguments...));
}

/// A line that looks like any other, but is written only in debug mode; otherwise its arguments are
/// not even formatted.
template <class... Arguments>
void debugLog(std::string_view format, const Arguments&... arguments) {
  if (!debugMode) return;
  QVTCLUtilLog("%@", foundation::format(format, arguments...));
}

#pragma once

#include <string>
#include <string_view>

#include "foundation/base/Format.h"

namespace foundation {

/// Writes one line `YYYY-MM-DD HH:MM:SS.mmm program[pid] text` (local time) to standard error in a
/// single write, with control characters in the text escaped (`escapingControlCharacters`).
/// Failures are ignored. Safe from any thread.
void systemLogText(std::string_view text);

template <class... Arguments>
void systemLog(std::string_view text, const Arguments&... arguments) {
  systemLogText(format(text, arguments...));
}

/// Writes the line the first time it is called with it in this process, and never again.
void systemLogOnce(const std::string& line);

/// While it lives, it keeps the lines of this process instead of writing them to standard error:
/// for a program that reports a failure in one line of its own. Only one at a time.
class SystemLogHold {
 public:
  SystemLogHold();
  /// Drops the lines that were not taken.
  ~SystemLogHold();
  SystemLogHold(const SystemLogHold&) = delete;
  SystemLogHold& operator=(const SystemLogHold&) = delete;

  /// The lines so far, each with its newline.
  std::string take();
};

/// "%Y-%m-%d %H:%M:%S.%F" of a point in time in the current time zone: milliseconds in three
/// digits.
std::string localTimeStamp(Date date);

}  // namespace foundation

#pragma once

#include <string>
#include <string_view>

#include "foundation/base/Format.h"

namespace foundation {

/// Writes one line `YYYY-MM-DD HH:MM:SS.mmm program[pid] text` (local time) to standard error, in
/// one write; control characters in the text are escaped (`escapingControlCharacters`). Failures
/// are ignored. Safe from any thread.
void systemLogText(std::string_view text);

template <class... Arguments>
void systemLog(std::string_view text, const Arguments&... arguments) {
  systemLogText(format(text, arguments...));
}

/// A line that is written once in the life of the process, however often it is asked for.
void systemLogOnce(const std::string& line);

/// While it lives, the lines of this process are kept in it instead of going to standard error: for
/// a program whose failures are to be one line of its own. One at a time.
class SystemLogHold {
 public:
  SystemLogHold();
  /// Lines that nobody took are dropped.
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

#include "inspect/Output.h"

#include <cerrno>
#include <string>
#include <system_error>

#include <unistd.h>

#include "foundation/base/WriteAll.h"

namespace inspect {

using foundation::writeAll;

int writeOutcome(const Outcome& outcome) {
  writeAll(STDERR_FILENO, outcome.standardError);
  const int error = writeAll(STDOUT_FILENO, outcome.standardOutput);
  if (error == 0) return outcome.status;
  if (error != EPIPE) {
    const std::string line = "sendoff-inspect: cannot write to standard output: " +
                             std::system_category().message(error) + "\n";
    writeAll(STDERR_FILENO, line);
  }
  return outcome.status == 0 ? 1 : outcome.status;
}

}  // namespace inspect

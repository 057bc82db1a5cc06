#include "inspect/Output.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

#include <unistd.h>

namespace inspect {

namespace {

/// The system's error number, 0 for none.
int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return written == 0 ? EIO : errno;
    }
  }
  return 0;
}

}  // namespace

int writeOutcome(const Outcome& outcome) {
  writeAll(STDERR_FILENO, outcome.standardError);
  const int error = writeAll(STDOUT_FILENO, outcome.standardOutput);
  if (error == 0) return outcome.status;
  if (error != EPIPE) {
    writeAll(STDERR_FILENO, "sendoff-inspect: cannot write to standard output: " +
                                std::system_category().message(error) + "\n");
  }
  return outcome.status == 0 ? 1 : outcome.status;
}

}  // namespace inspect

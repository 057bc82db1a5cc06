#include "Sendoff/InterruptibleRun.h"

#include <csignal>

#include <poll.h>
#include <unistd.h>

#include "console/QVTCLUtilLog.h"
#include "foundation/process/Interruption.h"
#include "preparation/TemporaryItems.h"

namespace {

const char* signalName(int signal) {
  switch (signal) {
    case SIGINT:
      return "SIGINT";
    case SIGHUP:
      return "SIGHUP";
    default:
      return "SIGTERM";
  }
}

/// A blocked console must not delay the end of the process by more than a second.
bool consoleIsWritable() {
  constexpr int milliseconds = 1000;
  pollfd console{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
  return ::poll(&console, 1, milliseconds) > 0;
}

void tidyUp(int signal) {
  TemporaryItems::removeAll();
  if (consoleIsWritable()) QVTCLUtilLog("The run was interrupted by %@", signalName(signal));
}

}  // namespace

int runInterruptibly(const std::function<int()>& run) {
  foundation::InterruptionWatch watch({.takeOver = tidyUp});
  int status = 0;
  try {
    status = run();
  } catch (const foundation::Interrupted&) {
    // `watch` has the signal.
  }
  const std::optional<int> signal = watch.finish();
  if (!signal) {
    // What the run leaves on purpose stays, and other runs may use it from now on.
    TemporaryItems::releaseAll();
    return status;
  }
  tidyUp(*signal);
  foundation::endBySignal(*signal);
}

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

/// A console that takes nothing must not hold up the end; it has a second to catch up.
bool consoleTakesALine() {
  constexpr int patience = 1000;
  pollfd console{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
  return ::poll(&console, 1, patience) > 0;
}

void tidyUp(int signal) {
  TemporaryItems::removeAll();
  if (consoleTakesALine()) QVTCLUtilLog("The run was interrupted by %@", signalName(signal));
}

}  // namespace

int runInterruptibly(const std::function<int()>& run) {
  foundation::InterruptionWatch watch({.takeOver = tidyUp});
  int status = 0;
  try {
    status = run();
  } catch (const foundation::Interrupted&) {
    // `watch` knows by which signal.
  }
  const std::optional<int> signal = watch.finish();
  if (!signal) {
    // What a run leaves on purpose stays; other runs may go on with it from here.
    TemporaryItems::releaseAll();
    return status;
  }
  tidyUp(*signal);
  foundation::endBySignal(*signal);
}

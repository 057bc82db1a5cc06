#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "foundation/base/Handle.h"

namespace foundation {

/// Thrown when a signal has interrupted the run. Deliberately not a `std::exception`, so that it is
/// never reported as a failure.
struct Interrupted {};

/// Makes SIGINT, SIGTERM and SIGHUP end a run cleanly. At most one at a time in a process.
///
/// The first signal terminates the running children (SIGTERM, then SIGKILL) and makes the run's
/// next `throwIfInterrupted` throw. A second signal ends the process at once. Signals that are
/// ignored when this is made stay ignored. If no descriptor or thread is available, signals keep
/// their previous effect.
class InterruptionWatch {
 public:
  struct Options {
    /// Called on a separate thread as soon as the run is interrupted.
    std::function<void()> wake = {};
    /// Called on a separate thread with the signal if the run does not notice the interruption in
    /// time (it is blocked by an unread console, say, or a disk that does not respond). Should
    /// clean up; then the process ends by the signal.
    std::function<void(int signal)> takeOver = {};
    std::chrono::milliseconds patienceWithChildren = std::chrono::seconds(1);
    std::chrono::milliseconds patienceWithRun = std::chrono::seconds(5);
  };

  /// The run is what the calling thread does from here on.
  explicit InterruptionWatch(Options options);
  ~InterruptionWatch();
  InterruptionWatch(const InterruptionWatch&) = delete;

  /// To be called at the end of the run, however it ends. Returns the signal that interrupted it,
  /// if any. From then on signals are ignored, since the outcome is settled.
  std::optional<int> finish();

 private:
  void watch();
  void endChildren();
  [[nodiscard]] bool isFinishedWithin(std::chrono::milliseconds limit) const;

  Options options_;
  FileDescriptor finished_;
  FileDescriptor finishedWriteEnd_;
  std::thread thread_;
};

/// True when a signal has interrupted the run; false if no run is being watched.
bool isInterrupted();

/// Throws `Interrupted` if the run has been interrupted; does nothing on other threads. To be
/// called where stopping loses nothing, and never from a destructor.
void throwIfInterrupted();

/// For polling only: readable once the run has been interrupted; -1 if none has ever been watched.
int interruptionDescriptor();

/// To be called when the run's outcome is settled: signals are ignored from here on. Throws
/// `Interrupted` if one has already arrived. Does nothing if no run is being watched.
void ignoreInterruptionsFromHere();

/// Ends this process by the signal's default action, so that its parent sees the signal. Safe in a
/// signal handler.
[[noreturn]] void endBySignal(int signal);

}  // namespace foundation

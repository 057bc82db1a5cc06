#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "foundation/base/Handle.h"

namespace foundation {

/// Thrown through a run that a signal has interrupted, up to whoever watches for it. Deliberately
/// no `std::exception`: nobody who reports those may take it for a failure.
struct Interrupted {};

/// Lets SIGINT, SIGTERM and SIGHUP end a run in order; at most one at a time in a process.
///
/// The first signal ends the running children, politely, then by force, and makes the run's next
/// check point throw `Interrupted`. A second one ends the process at once. A signal that is ignored
/// when this is made stays ignored. Where no descriptor or thread is left, signals do what they did
/// before.
class InterruptionWatch {
 public:
  struct Options {
    /// Called on a thread of its own as soon as the run is interrupted.
    std::function<void()> wake = {};
    /// Called on a thread of its own with the signal, when the run has not come to a check point in
    /// time (a console that nobody reads holds it up, or a disk that does not answer). It tidies
    /// up; then the process ends by the signal.
    std::function<void(int signal)> takeOver = {};
    std::chrono::milliseconds patienceWithChildren = std::chrono::seconds(1);
    std::chrono::milliseconds patienceWithRun = std::chrono::seconds(5);
  };

  /// The run is what this thread does from here on.
  explicit InterruptionWatch(Options options);
  ~InterruptionWatch();
  InterruptionWatch(const InterruptionWatch&) = delete;

  /// To be called at the end of the run, however it came: the signal that has interrupted it, if
  /// one has. From then on its outcome stands: signals that come now are ignored.
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

/// True when a signal has interrupted the run that is being watched; false without one.
bool isInterrupted();

/// A check point: throws `Interrupted` when the run has been interrupted. Does nothing on other
/// threads than the run's. To be called where nothing would be lost, never from a destructor.
void throwIfInterrupted();

/// Readable once the run has been interrupted; -1 when none is being watched. Not to be read.
int interruptionDescriptor();

/// The run has its outcome: signals that come from here on are ignored. Throws `Interrupted` when
/// one came before. Does nothing when no run is being watched.
void ignoreInterruptionsFromHere();

/// Ends this process by the signal's default action, so that its parent sees it. Safe in a signal
/// handler.
[[noreturn]] void endBySignal(int signal);

}  // namespace foundation

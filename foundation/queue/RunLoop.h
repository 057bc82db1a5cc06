#pragma once

#include <chrono>
#include <functional>

namespace foundation {

/// Something besides work that the run loop drives on its thread: a set of connections, say.
class RunLoopSource {
 public:
  virtual ~RunLoopSource() = default;
  /// Does what can be done now, without waiting.
  virtual void drive() = 0;
  /// Returns when there may be something to drive, after `wake`, or when the time is over.
  virtual void wait(std::chrono::milliseconds limit) = 0;
  /// Ends the current or the next `wait`; safe from any thread.
  virtual void wake() = 0;
};

/// The main run loop: runs the main queue's work and drives what is scheduled on it (asynchronous
/// URL connections) on the thread that calls `run`. A host that uses anything asynchronous must
/// keep it running.
class RunLoop {
 public:
  static RunLoop& main();

  /// Runs until `stop`; only one thread at a time may run the loop.
  void run();
  /// Runs until `isDone` answers true (asked after every piece of work) or the time is over; the
  /// answer is `isDone`'s last.
  bool runUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit);
  /// Makes the current `run` return; does nothing when none is under way (where that can be, hand
  /// the call in as work). Safe from any thread.
  void stop();
  /// Runs `work` on the loop's thread, in order; safe from any thread.
  void perform(std::function<void()> work);
  /// From here on the loop drives `source` as well, and waits in it. There is at most one, which
  /// lives as long as the process; safe from any thread.
  void setSource(RunLoopSource& source);
  /// True on the thread that is running the loop.
  [[nodiscard]] bool isCurrent() const;

 private:
  RunLoop() = default;
};

}  // namespace foundation

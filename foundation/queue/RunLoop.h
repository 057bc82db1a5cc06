#pragma once

#include <chrono>
#include <functional>

namespace foundation {

/// Something that the run loop drives on its thread besides work, such as a set of connections.
class RunLoopSource {
 public:
  virtual ~RunLoopSource() = default;
  /// Does what can be done without waiting.
  virtual void drive() = 0;
  /// Returns when there may be something to drive, after `wake`, or at the limit.
  virtual void wait(std::chrono::milliseconds limit) = 0;
  /// Ends the current or the next `wait`; safe from any thread.
  virtual void wake() = 0;
};

/// The main run loop: runs the main queue's work and drives asynchronous URL connections, on the
/// thread that calls `run`. A program that uses anything asynchronous must keep it running.
class RunLoop {
 public:
  static RunLoop& main();

  /// Runs until `stop`; only one thread at a time may run the loop.
  void run();
  /// Runs until `isDone`, which is called after every piece of work, returns true or the limit is
  /// reached. Returns the last result of `isDone`.
  bool runUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit);
  /// Makes the current `run` return; does nothing if none is running (pass the call to `perform` if
  /// `run` may start later). Safe from any thread.
  void stop();
  /// Runs `work` on the loop's thread, in order; safe from any thread.
  void perform(std::function<void()> work);
  /// From here on the loop also drives `source`, and waits in it. There is at most one source,
  /// which must live as long as the process. Safe from any thread.
  void setSource(RunLoopSource& source);
  /// True on the thread that is running the loop.
  [[nodiscard]] bool isCurrent() const;

 private:
  RunLoop() = default;
};

}  // namespace foundation

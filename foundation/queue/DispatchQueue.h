#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace foundation {

/// A queue of work. Serial queues run one piece at a time, in order; the global queue runs pieces
/// concurrently on a pool of threads; the main queue runs them on the thread that runs
/// `RunLoop::main()`.
///
/// Copies refer to the same queue. A queue lives until its last piece has run, even without any
/// handle to it. Safe from any thread.
class DispatchQueue {
 public:
  using Work = std::function<void()>;

  static DispatchQueue serial(std::string label);
  /// The process-wide concurrent queue of default priority.
  static DispatchQueue global();
  static DispatchQueue main();

  [[nodiscard]] const std::string& label() const;

  /// Runs `work` on the calling thread after everything queued before, while the queue waits.
  /// Returns when it has run; passes on its exceptions. Calling it from inside the same serial
  /// queue, which would deadlock, or on the main queue stops the process.
  void sync(const Work& work) const;
  /// Returns at once. An exception that escapes from `work` ends the process.
  void async(Work work) const;
  void asyncAfter(std::chrono::milliseconds delay, Work work) const;

  /// True on a thread that is running a piece of this queue, at any depth; never for the global
  /// queue.
  [[nodiscard]] bool isCurrent() const;

  /// For destructors of objects that may be destroyed on their own queue: `sync`, or a direct call
  /// when already inside this queue.
  void syncOrInline(const Work& work) const;

  struct State;

 private:
  explicit DispatchQueue(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace foundation

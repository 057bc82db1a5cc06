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
/// Copies refer to the same queue. A queue lives until its last piece has run, even when every
/// handle to it is gone. All operations are safe from any thread.
class DispatchQueue {
 public:
  using Work = std::function<void()>;

  static DispatchQueue serial(std::string label);
  /// The process-wide concurrent queue of default priority.
  static DispatchQueue global();
  static DispatchQueue main();

  [[nodiscard]] const std::string& label() const;

  /// Runs `work` on the calling thread while the queue is held, after all that was queued before;
  /// returns when it has run, and lets its exception through. From inside the same serial queue
  /// this would wait on itself: a programming fault that stops the process. Not for the main queue.
  void sync(const Work& work) const;
  /// Returns at once. An exception that leaves `work` ends the process.
  void async(Work work) const;
  void asyncAfter(std::chrono::milliseconds delay, Work work) const;

  /// True on a thread that is running a piece of this queue, at any depth; never for the global
  /// queue.
  [[nodiscard]] bool isCurrent() const;

  /// For destructors: `sync`, but run in place when called from inside this queue, since an object
  /// destroyed on its own queue must not wait on itself.
  void syncOrInline(const Work& work) const;

  struct State;

 private:
  explicit DispatchQueue(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace foundation

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

// The threads behind the queues; for this folder's own sources only.

namespace foundation {

/// Runs a piece and destroys it; an exception ends the process.
void runToEnd(std::function<void()> work) noexcept;

/// Threads for the global queue and for the serial queues' turns. All operations are safe from any
/// thread.
///
/// About `kMostThreads` run at a time, but no limit ever makes two pieces wait for each other: a
/// thread that waits for a serial queue does not count, a serial queue's turn goes ahead of the
/// global queue's pieces, and when nothing at all ends for a while, since all threads wait for
/// something else, the limit gives way. Threads that find nothing to do end.
class ThreadPool {
 public:
  using Work = std::function<void()>;

  /// Never destroyed: its threads may run until the very end of the process.
  static ThreadPool& shared();

  /// A piece of the global queue.
  void add(Work work);
  /// A serial queue's turn to run.
  void addTurn(Work work);

  /// The calling thread waits for a serial queue while this lives.
  class Waiting {
   public:
    Waiting();
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
  };

 private:
  static constexpr std::size_t kMostThreads = 64;

  ThreadPool();
  void enqueue(std::deque<Work>& queue, Work work);
  [[nodiscard]] std::size_t pendingCount() const { return turns_.size() + pieces_.size(); }
  void provideThread();
  void startThread();
  void watchForStall();
  void endStall();
  void serve();
  Work next();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Work> turns_;
  std::deque<Work> pieces_;
  int turnsInARow_ = 0;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;
  std::size_t waiting_ = 0;
  /// Grows whenever a piece ends.
  std::uint64_t ended_ = 0;
  bool isWatched_ = false;
  std::uint64_t endedAtLastLook_ = 0;
  std::size_t threadsPerStall_ = 1;
};

/// Hands work over when its time has come, on a thread of its own: for short pieces.
class Timer {
 public:
  using Clock = std::chrono::steady_clock;

  /// Never destroyed.
  static Timer& shared();
  void add(Clock::time_point when, std::function<void()> work);

 private:
  Timer();
  [[noreturn]] void serve();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<Clock::time_point, std::function<void()>> waiting_;
};

}  // namespace foundation

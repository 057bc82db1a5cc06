#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

// The threads that run the queues; for this folder's own sources only.

namespace foundation {

/// Runs and destroys a piece; an exception ends the process.
void runToEnd(std::function<void()> work) noexcept;

/// Threads for the global queue and for the turns of serial queues. Safe from any thread.
///
/// About `kMostThreads` run at a time, but the limit never causes a deadlock: a thread that waits
/// for a serial queue does not count, a serial queue's turn goes ahead of the global queue's
/// pieces, and when no piece ends for a while, because all threads wait for something else, the
/// limit is raised. Idle threads end.
class ThreadPool {
 public:
  using Work = std::function<void()>;

  /// Never destroyed, since its threads may run until the process ends.
  static ThreadPool& shared();

  /// A piece of the global queue.
  void add(Work work);
  /// A serial queue's turn to run.
  void addTurn(Work work);

  /// Marks the calling thread as waiting for a serial queue while this lives.
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

/// Runs short pieces at a given time, all on one thread of its own.
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

#include "foundation/queue/private/QueueThreads.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>

namespace foundation {

namespace {

/// How long no piece may end, while some are pending, before the pool grows beyond its limit.
constexpr std::chrono::milliseconds kStall{50};
/// Most threads added at once; the number doubles from 1 while a stall lasts.
constexpr std::size_t kMostThreadsPerStall = 16;
/// How long an idle thread waits before it ends.
constexpr std::chrono::seconds kIdleTime{1};
/// How many turns may overtake a pending piece.
constexpr int kMostTurnsInARow = 16;

thread_local bool isPoolThread = false;

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): owned, so that it is destroyed here
void runToEnd(std::function<void()> work) noexcept { work(); }

ThreadPool& ThreadPool::shared() {
  static ThreadPool* const pool = new ThreadPool;
  return *pool;
}

/// Starts the timer now: when it is needed, no more threads may be available.
ThreadPool::ThreadPool() { Timer::shared(); }

void ThreadPool::add(Work work) { enqueue(pieces_, std::move(work)); }

void ThreadPool::addTurn(Work work) { enqueue(turns_, std::move(work)); }

void ThreadPool::enqueue(std::deque<Work>& queue, Work work) {
  const std::lock_guard lock(mutex_);
  queue.push_back(std::move(work));
  provideThread();
}

/// Makes sure that a thread will run what is pending.
void ThreadPool::provideThread() {
  if (pendingCount() == 0) return;
  if (pendingCount() <= idle_) {
    changed_.notify_one();
  } else if (threads_ - waiting_ < kMostThreads) {
    startThread();
  } else {
    watchForStall();
  }
}

void ThreadPool::startThread() {
  try {
    std::thread([this] { serve(); }).detach();
    ++threads_;
  } catch (const std::system_error&) {
    if (threads_ == 0) throw;
    watchForStall();  // the existing threads go on, and more may be available later
  }
}

void ThreadPool::watchForStall() {
  if (isWatched_) return;
  Timer::shared().add(Timer::Clock::now() + kStall, [this] { endStall(); });
  isWatched_ = true;
  endedAtLastLook_ = ended_;
}

void ThreadPool::endStall() {
  const std::lock_guard lock(mutex_);
  isWatched_ = false;
  if (pendingCount() == 0 || ended_ != endedAtLastLook_) {
    threadsPerStall_ = 1;
  } else {
    const std::size_t count = std::min(threadsPerStall_, pendingCount());
    threadsPerStall_ = std::min(2 * threadsPerStall_, kMostThreadsPerStall);
    for (std::size_t i = 0; i < count; ++i) startThread();
  }
  if (pendingCount() != 0) watchForStall();
}

void ThreadPool::serve() {
  isPoolThread = true;
  while (Work work = next()) {
    runToEnd(std::exchange(work, nullptr));
    const std::lock_guard lock(mutex_);
    ++ended_;
  }
}

/// Empty after an idle while: the calling thread should end.
ThreadPool::Work ThreadPool::next() {
  std::unique_lock lock(mutex_);
  ++idle_;
  const bool found = changed_.wait_for(lock, kIdleTime, [this] { return pendingCount() != 0; });
  --idle_;
  if (!found) {
    --threads_;
    return nullptr;
  }
  const bool isPiece = turns_.empty() || (!pieces_.empty() && turnsInARow_ >= kMostTurnsInARow);
  turnsInARow_ = isPiece ? 0 : turnsInARow_ + 1;
  std::deque<Work>& queue = isPiece ? pieces_ : turns_;
  Work work = std::move(queue.front());
  queue.pop_front();
  return work;
}

ThreadPool::Waiting::Waiting() {
  if (!isPoolThread) return;
  ThreadPool& pool = shared();
  const std::lock_guard lock(pool.mutex_);
  ++pool.waiting_;
  pool.provideThread();
}

ThreadPool::Waiting::~Waiting() {
  if (!isPoolThread) return;
  ThreadPool& pool = shared();
  const std::lock_guard lock(pool.mutex_);
  --pool.waiting_;
}

Timer& Timer::shared() {
  static Timer* const timer = new Timer;
  return *timer;
}

Timer::Timer() {
  std::thread([this] { serve(); }).detach();
}

void Timer::add(Clock::time_point when, std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  waiting_.emplace(when, std::move(work));
  changed_.notify_one();
}

void Timer::serve() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (waiting_.empty()) {
      changed_.wait(lock);
    } else if (const auto next = waiting_.begin()->first; Clock::now() < next) {
      changed_.wait_until(lock, next);
    } else {
      std::function<void()> work = std::move(waiting_.extract(waiting_.begin()).mapped());
      lock.unlock();
      runToEnd(std::exchange(work, nullptr));
      lock.lock();
    }
  }
}

}  // namespace foundation

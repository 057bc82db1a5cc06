#include "foundation/queue/RunLoop.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "foundation/base/Assertion.h"

namespace foundation {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// Longest wait of a loop without a limit; it is woken whenever there is something to do.
constexpr milliseconds kLongWait{60'000};

struct State {
  std::mutex mutex;
  /// Ends the wait of a loop without a source.
  std::condition_variable changed;
  bool isAwake = false;
  /// Null until one is set.
  RunLoopSource* source = nullptr;
  std::deque<std::function<void()>> work;
  std::thread::id runner;
  /// The number of nested calls that run the loop on that thread.
  int depth = 0;
  /// How many of those are `run`, and whether the innermost `run` should return.
  int runs = 0;
  bool stopIsWanted = false;
};

/// Never destroyed, since work may arrive until the process ends.
State& state() {
  static auto& shared = *new State;
  return shared;
}

/// The calling thread runs the loop while this lives.
class Running {
 public:
  Running() {
    const std::lock_guard guard(state().mutex);
    assertThat(state().depth == 0 || state().runner == std::this_thread::get_id(),
               "only one thread runs the loop", {"RunLoop::run", "RunLoop.cpp", __LINE__});
    state().runner = std::this_thread::get_id();
    ++state().depth;
  }
  ~Running() {
    const std::lock_guard guard(state().mutex);
    if (--state().depth == 0) state().runner = {};
  }
  Running(const Running&) = delete;
};

std::function<void()> nextWork() {
  const std::lock_guard guard(state().mutex);
  if (state().work.empty()) return {};
  auto work = std::move(state().work.front());
  state().work.pop_front();
  return work;
}

std::size_t workCount() {
  const std::lock_guard guard(state().mutex);
  return state().work.size();
}

/// Runs only the work present now, so that work that adds work does not hold up the source.
bool runWork(const std::function<bool()>& isDone) {
  for (std::size_t left = workCount(); left > 0; --left) {
    if (const auto work = nextWork()) work();
    if (isDone()) return true;
  }
  return false;
}

RunLoopSource* source() {
  const std::lock_guard guard(state().mutex);
  return state().source;
}

void wait(milliseconds limit) {
  if (RunLoopSource* const waiting = source()) return waiting->wait(limit);
  std::unique_lock lock(state().mutex);
  state().changed.wait_for(lock, limit, [] { return state().isAwake; });
  state().isAwake = false;
}

/// Ends the current or the next `wait`. `guard` holds the state's mutex.
void wake(std::unique_lock<std::mutex> guard) {
  state().isAwake = true;
  RunLoopSource* const waiting = state().source;
  guard.unlock();
  state().changed.notify_one();
  if (waiting) waiting->wake();
}

bool runLoop(const std::function<bool()>& isDone, Clock::time_point end) {
  const Running running;
  while (!isDone()) {
    if (runWork(isDone)) return true;
    if (RunLoopSource* const driven = source()) driven->drive();
    if (isDone()) return true;
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (left <= milliseconds(0)) return false;
    if (workCount() == 0) wait(std::min(left, kLongWait));
  }
  return true;
}

bool takeStop() {
  const std::lock_guard guard(state().mutex);
  return std::exchange(state().stopIsWanted, false);
}

}  // namespace

RunLoop& RunLoop::main() {
  static RunLoop loop;
  return loop;
}

void RunLoop::run() {
  {
    const std::lock_guard guard(state().mutex);
    ++state().runs;
  }
  runLoop(takeStop, Clock::time_point::max());
  const std::lock_guard guard(state().mutex);
  --state().runs;
}

bool RunLoop::runUntil(const std::function<bool()>& isDone, milliseconds limit) {
  return runLoop(isDone, Clock::now() + limit);
}

void RunLoop::stop() {
  std::unique_lock guard(state().mutex);
  state().stopIsWanted = state().runs > 0;
  wake(std::move(guard));
}

void RunLoop::perform(std::function<void()> work) {
  std::unique_lock guard(state().mutex);
  state().work.push_back(std::move(work));
  wake(std::move(guard));
}

void RunLoop::setSource(RunLoopSource& source) {
  std::unique_lock guard(state().mutex);
  state().source = &source;
  wake(std::move(guard));
}

bool RunLoop::isCurrent() const {
  const std::lock_guard guard(state().mutex);
  return state().depth > 0 && state().runner == std::this_thread::get_id();
}

}  // namespace foundation

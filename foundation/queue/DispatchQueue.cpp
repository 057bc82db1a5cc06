#include "foundation/queue/DispatchQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "foundation/base/Assertion.h"
#include "foundation/queue/RunLoop.h"
#include "foundation/queue/private/QueueThreads.h"

namespace foundation {

namespace {

using Work = DispatchQueue::Work;

struct Frame;
thread_local const Frame* innermostFrame = nullptr;

/// The calling thread runs a piece of the queue while this lives.
struct Frame {
  explicit Frame(const DispatchQueue::State* running) : state(running), outer(innermostFrame) {
    innermostFrame = this;
  }
  ~Frame() { innermostFrame = outer; }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  const DispatchQueue::State* state;
  const Frame* outer;
};

}  // namespace

struct DispatchQueue::State : std::enable_shared_from_this<DispatchQueue::State> {
  explicit State(std::string name) : label(std::move(name)) {}
  virtual ~State() = default;

  virtual void sync(const Work& work) = 0;
  virtual void async(Work work) = 0;

  [[nodiscard]] bool isCurrent() const {
    const Frame* frame = innermostFrame;
    while (frame && frame->state != this) frame = frame->outer;
    return frame != nullptr;
  }

  const std::string label;
};

namespace {

class SerialState final : public DispatchQueue::State {
 public:
  using State::State;

  void sync(const Work& work) override {
    hold();
    const struct Holder {
      SerialState& queue;
      ~Holder() { queue.passOn(); }
    } holder{*this};
    const Frame frame(this);
    work();
  }

  void async(Work work) override {
    const std::lock_guard lock(mutex_);
    pending_.push_back({std::move(work), nullptr});
    if (!std::exchange(isHeld_, true)) drainOnPool();
  }

 private:
  /// A thread that waits for its turn in `sync`.
  struct Waiter {
    std::condition_variable turn;
    bool hasTurn = false;
  };
  struct Item {
    Work work;
    Waiter* waiter;
  };

  /// Waits until everything queued before has run; then the calling thread holds the queue.
  void hold() {
    std::unique_lock lock(mutex_);
    if (!std::exchange(isHeld_, true)) return;
    const ThreadPool::Waiting waiting;
    Waiter waiter;
    pending_.push_back({nullptr, &waiter});
    waiter.turn.wait(lock, [&] { return waiter.hasTurn; });
  }

  /// Hands the held queue to the next waiting thread or piece.
  void passOn() {
    const std::lock_guard lock(mutex_);
    if (pending_.empty()) {
      isHeld_ = false;
    } else if (!handToWaiter()) {
      drainOnPool();
    }
  }

  /// True when a waiting thread is next, which then holds the queue.
  bool handToWaiter() {
    Waiter* const next = pending_.front().waiter;
    if (!next) return false;
    pending_.pop_front();
    next->hasTurn = true;
    next->turn.notify_one();
    return true;
  }

  /// The pool's piece owns this state, which keeps the queue alive until it is empty.
  void drainOnPool() {
    ThreadPool::shared().addTurn(
        [self = std::static_pointer_cast<SerialState>(shared_from_this())] { self->drain(); });
  }

  void drain() {
    for (;;) {
      Work work;
      {
        const std::lock_guard lock(mutex_);
        if (pending_.empty()) {
          isHeld_ = false;
          return;
        }
        if (handToWaiter()) return;
        work = std::move(pending_.front().work);
        pending_.pop_front();
      }
      // What the piece owns is destroyed inside the frame, as part of the piece.
      const Frame frame(this);
      runToEnd(std::exchange(work, nullptr));
    }
  }

  std::mutex mutex_;
  std::deque<Item> pending_;
  bool isHeld_ = false;
};

class GlobalState final : public DispatchQueue::State {
 public:
  using State::State;
  void sync(const Work& work) override { work(); }
  void async(Work work) override { ThreadPool::shared().add(std::move(work)); }
};

class MainState final : public DispatchQueue::State {
 public:
  using State::State;
  void sync(const Work&) override {
    assertionFailed("queue != main", {"sync", "DispatchQueue.cpp", __LINE__});
  }
  void async(Work work) override {
    RunLoop::main().perform([this, piece = std::move(work)]() mutable {
      const Frame frame(this);
      runToEnd(std::exchange(piece, nullptr));
    });
  }
};

}  // namespace

DispatchQueue DispatchQueue::serial(std::string label) {
  return DispatchQueue(std::make_shared<SerialState>(std::move(label)));
}

DispatchQueue DispatchQueue::global() {
  static const auto* const state =
      new std::shared_ptr<State>(std::make_shared<GlobalState>("global"));
  return DispatchQueue(*state);
}

DispatchQueue DispatchQueue::main() {
  static const auto* const state = new std::shared_ptr<State>(std::make_shared<MainState>("main"));
  return DispatchQueue(*state);
}

const std::string& DispatchQueue::label() const { return state_->label; }

void DispatchQueue::sync(const Work& work) const {
  assertThat(!isCurrent(), "!isCurrent()", {"sync", "DispatchQueue.cpp", __LINE__});
  const std::shared_ptr<State> state = state_;  // `work` may destroy this very handle
  state->sync(work);
}

void DispatchQueue::async(Work work) const { state_->async(std::move(work)); }

void DispatchQueue::asyncAfter(std::chrono::milliseconds delay, Work work) const {
  Timer::shared().add(
      Timer::Clock::now() + delay,
      [queue = *this, piece = std::move(work)]() mutable { queue.async(std::move(piece)); });
}

bool DispatchQueue::isCurrent() const { return state_->isCurrent(); }

void DispatchQueue::syncOrInline(const Work& work) const {
  if (isCurrent()) {
    work();
  } else {
    sync(work);
  }
}

}  // namespace foundation

#include "foundation/queue/NotificationCenter.h"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace foundation {

/// One observation. A posting thread keeps it alive during the call.
struct NotificationCenter::Token::State {
  State(std::string_view observed, Observer called) : name(observed), observer(std::move(called)) {}

  void call(const Notification& notification) {
    const Call running(*this);
    if (running.isAllowed) observer(notification);
  }

  /// Returns when no other thread is inside the observer; none enters it afterwards.
  void end() {
    registry().remove(*this);
    std::unique_lock lock(mutex);
    isActive = false;
    left.wait(lock, [this] {
      return std::ranges::all_of(
          callers, [](std::thread::id caller) { return caller == std::this_thread::get_id(); });
    });
  }

  /// All observations in the order of their registration.
  class Registry {
   public:
    void add(std::shared_ptr<State> observation) {
      const std::lock_guard lock(mutex_);
      observations_.push_back(std::move(observation));
    }

    void remove(const State& ended) {
      std::shared_ptr<State> kept;  // destroyed outside the lock
      const std::lock_guard lock(mutex_);
      const auto found = std::ranges::find_if(
          observations_, [&](const auto& observation) { return observation.get() == &ended; });
      if (found == observations_.end()) return;
      kept = std::move(*found);
      observations_.erase(found);
    }

    std::vector<std::shared_ptr<State>> observersOf(std::string_view wanted) {
      std::vector<std::shared_ptr<State>> found;
      const std::lock_guard lock(mutex_);
      std::ranges::copy_if(observations_, std::back_inserter(found),
                           [&](const auto& observation) { return observation->name == wanted; });
      return found;
    }

   private:
    std::mutex mutex_;
    std::vector<std::shared_ptr<State>> observations_;
  };

  /// Never destroyed, since notifications may be posted until the process ends.
  static Registry& registry() {
    static auto& shared = *new Registry;
    return shared;
  }

  const std::string name;
  const Observer observer;

 private:
  /// The calling thread is inside the observer while this lives.
  struct Call {
    explicit Call(State& entered) : state(entered) {
      const std::lock_guard lock(state.mutex);
      isAllowed = state.isActive;
      state.callers.push_back(std::this_thread::get_id());
    }
    ~Call() {
      const std::lock_guard lock(state.mutex);
      state.callers.erase(std::ranges::find(state.callers, std::this_thread::get_id()));
      state.left.notify_all();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    State& state;
    bool isAllowed = false;
  };

  std::mutex mutex;
  std::condition_variable left;
  std::vector<std::thread::id> callers;
  bool isActive = true;
};

NotificationCenter::Token::Token(Token&&) noexcept = default;

NotificationCenter::Token& NotificationCenter::Token::operator=(Token&& other) noexcept {
  if (this == &other) return *this;
  if (const auto ended = std::exchange(state_, std::move(other.state_))) ended->end();
  return *this;
}

NotificationCenter::Token::~Token() {
  if (state_) state_->end();
}

NotificationCenter& NotificationCenter::defaultCenter() {
  static auto& center = *new NotificationCenter;
  return center;
}

NotificationCenter::Token NotificationCenter::addObserver(std::string_view name,
                                                          Observer observer) {
  Token token;
  token.state_ = std::make_shared<Token::State>(name, std::move(observer));
  Token::State::registry().add(token.state_);
  return token;
}

void NotificationCenter::post(std::string_view name, Value object) {
  const Notification notification{std::string(name), std::move(object)};
  for (const auto& observation : Token::State::registry().observersOf(name)) {
    observation->call(notification);
  }
}

}  // namespace foundation

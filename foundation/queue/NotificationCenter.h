#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

namespace foundation {

/// Process-wide notifications by name. Observers are called on the posting thread, in the order of
/// their registration. All operations are safe from any thread, including from an observer.
class NotificationCenter {
 public:
  struct Notification {
    std::string name;
    Value object;
  };
  using Observer = std::function<void(const Notification&)>;

  /// Ends its observation when destroyed, after waiting for calls that are running on other
  /// threads.
  class Token {
   public:
    Token() = default;
    Token(Token&&) noexcept;
    Token& operator=(Token&&) noexcept;
    ~Token();

   private:
    friend class NotificationCenter;
    struct State;
    std::shared_ptr<State> state_;
  };

  static NotificationCenter& defaultCenter();

  /// Observes for as long as the token lives. What an observer throws passes through to `post`.
  [[nodiscard]] Token addObserver(std::string_view name, Observer observer);
  /// Returns when all observers of `name` have been called.
  void post(std::string_view name, Value object);

 private:
  NotificationCenter() = default;
};

}  // namespace foundation

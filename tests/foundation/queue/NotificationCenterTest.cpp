#include "foundation/queue/NotificationCenter.h"
#include "tests/support/Test.h"

namespace {

using foundation::NotificationCenter;
using Notification = NotificationCenter::Notification;
using Token = NotificationCenter::Token;

struct NotificationCenterTest : testing::Test {
  /// An observer of "Name" that writes down its own name and what was posted.
  Token observe(
      const std::string& who, const std::function<void()>& then = [] {}) {
    return center_.addObserver("Name", [=, this](const Notification& notification) {
      seen_.push_back(who + " " + *notification.object.string());
      then();
    });
  }

  NotificationCenter& center_ = NotificationCenter::defaultCenter();
  std::vector<std::string> seen_;
};

TEST_F(NotificationCenterTest, CallsTheObserversOfANameInOrder) {
  const Token first = observe("first");
  Token second = observe("second");
  const Token other = center_.addObserver("Other", [](const Notification&) { FAIL(); });
  center_.post("Name", "one");
  second = observe("third");
  center_.post("Name", "two");
  EXPECT_THAT(seen_, ElementsAre("first one", "second one", "first two", "third two"));
}

TEST_F(NotificationCenterTest, AnObserverMayRemoveItselfAndOthersAndPostAgain) {
  Token removed;
  Token self;
  self = observe("self", [&] {
    removed = {};
    self = {};
    center_.post("Name", "inner");
  });
  removed = observe("removed");
  const Token last = observe("last");
  center_.post("Name", "outer");
  EXPECT_THAT(seen_, ElementsAre("self outer", "last inner", "last outer"));
}

TEST_F(NotificationCenterTest, RemovalWaitsForACallOnAnotherThread) {
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> isGone = false, isLate = false;
    Token token = center_.addObserver("Name", [&](const Notification&) {
      std::this_thread::yield();
      if (isGone) isLate = true;
    });
    std::thread poster([&] {
      for (int i = 0; i < 20; ++i) center_.post("Name", {});
    });
    token = {};
    isGone = true;
    poster.join();
    EXPECT_FALSE(isLate);
  }
}

}  // namespace

#include "foundation/queue/NotificationCenter.h"
#include "tests/support/Test.h"

namespace {

using foundation::NotificationCenter;
using Notification = NotificationCenter::Notification;
using Token = NotificationCenter::Token;

TEST(NotificationCenter, AnObserverMayRemoveItselfAndOthersAndPostAgain) {
  NotificationCenter& center = NotificationCenter::defaultCenter();
  std::vector<std::string> seen;
  const auto observe = [&](const std::string& who, const std::function<void()>& then) {
    return center.addObserver("Name", [=, &seen](const Notification& notification) {
      seen.push_back(who + " " + *notification.object.string());
      then();
    });
  };
  const auto nothing = [] {};
  const Token other = center.addObserver("Other", [](const Notification&) { FAIL(); });
  Token removed = observe("replaced", nothing);
  Token self;
  self = observe("self", [&] {
    removed = {};
    self = {};
    center.post("Name", "inner");
  });
  removed = observe("removed", nothing);
  const Token last = observe("last", nothing);
  center.post("Name", "outer");
  EXPECT_THAT(seen, ElementsAre("self outer", "last inner", "last outer"));
}

TEST(NotificationCenter, RemovalWaitsForACallOnAnotherThread) {
  NotificationCenter& center = NotificationCenter::defaultCenter();
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> isGone = false;
    Token token = center.addObserver("Name", [&](const Notification&) {
      std::this_thread::yield();
      EXPECT_FALSE(isGone);
    });
    std::thread poster([&] {
      for (int i = 0; i < 20; ++i) center.post("Name", {});
    });
    token = {};
    isGone = true;
    poster.join();
  }
}

}  // namespace

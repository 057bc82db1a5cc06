#include <atomic>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/queue/NotificationCenter.h"

namespace {

using foundation::NotificationCenter;
using testing::ElementsAre;
using Notification = NotificationCenter::Notification;
using Token = NotificationCenter::Token;

NotificationCenter& center() { return NotificationCenter::defaultCenter(); }

TEST(NotificationCenterTest, CallsTheObserversOfANameInOrder) {
  std::vector<std::string> seen;
  const auto observe = [&](const std::string& who) {
    return center().addObserver("Name", [&seen, who](const Notification& notification) {
      seen.push_back(who + " " + *notification.object.string());
    });
  };
  const Token first = observe("first");
  Token second = observe("second");
  const Token other = center().addObserver("Other", [](const Notification&) { FAIL(); });
  center().post("Name", "one");
  second = observe("third");
  center().post("Name", "two");
  EXPECT_THAT(seen, ElementsAre("first one", "second one", "first two", "third two"));
}

TEST(NotificationCenterTest, AnObserverMayRemoveItselfAndOthersAndPostAgain) {
  std::vector<std::string> seen;
  Token removed;
  Token self;
  self = center().addObserver("Name", [&](const Notification&) {
    seen.emplace_back("self");
    removed = {};
    self = {};
    center().post("Name", {});
  });
  removed =
      center().addObserver("Name", [&](const Notification&) { seen.emplace_back("removed"); });
  const Token last =
      center().addObserver("Name", [&](const Notification&) { seen.emplace_back("last"); });
  center().post("Name", {});
  EXPECT_THAT(seen, ElementsAre("self", "last", "last"));
}

TEST(NotificationCenterTest, RemovalWaitsForACallOnAnotherThread) {
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> isGone = false;
    std::atomic<bool> isLate = false;
    Token token = center().addObserver("Name", [&](const Notification&) {
      std::this_thread::yield();
      if (isGone) isLate = true;
    });
    std::thread poster([] {
      for (int i = 0; i < 20; ++i) center().post("Name", {});
    });
    token = {};
    isGone = true;
    poster.join();
    EXPECT_FALSE(isLate);
  }
}

}  // namespace

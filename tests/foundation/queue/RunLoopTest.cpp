#include "foundation/queue/RunLoop.h"
#include "tests/support/Test.h"

namespace {

struct RunLoopTest : testing::Test {
  foundation::RunLoop& loop_ = foundation::RunLoop::main();
};

TEST_F(RunLoopTest, AsksAfterEveryPieceAndUntilTheTimeIsOver) {
  int ran = 0;
  for (int i = 0; i < 3; ++i) loop_.perform([&] { ++ran; });
  EXPECT_TRUE(loop_.runUntil([&] { return ran == 2; }, kDeadline));
  EXPECT_EQ(ran, 2);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop_.runUntil([] { return false; }, 50ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
  EXPECT_EQ(ran, 3);
}

TEST_F(RunLoopTest, WakesForTheWorkOfAllThreadsAndRunsItInOrder) {
  constexpr int kOfEach = 500;
  std::vector<std::vector<int>> seen(4);
  int done = 0;
  std::vector<std::thread> threads;
  const auto home = std::this_thread::get_id();
  for (std::vector<int>& order : seen) {
    threads.emplace_back([&] {
      for (int n = 0; n < kOfEach; ++n) {
        loop_.perform([&, n] {
          EXPECT_EQ(std::this_thread::get_id(), home);
          order.push_back(n);
          ++done;
        });
      }
    });
  }
  EXPECT_TRUE(eventuallyOnMainLoop([&] { return done == 4 * kOfEach; }));
  for (std::thread& thread : threads) thread.join();
  for (const auto& order : seen) EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST_F(RunLoopTest, IsStoppedFromOutsideButNotBeforeItRuns) {
  loop_.stop();
  std::atomic<bool> ran = false;
  std::thread other([&] {
    loop_.perform([&] { ran = true; });
    while (!ran) std::this_thread::yield();
    loop_.stop();
  });
  loop_.run();
  EXPECT_TRUE(ran);
  eventuallyOnMainLoop([&] { return ran.load(); });
  other.join();
}

TEST_F(RunLoopTest, RunsInsideItself) {
  bool isInnerDone = false, isOuterDone = false;
  loop_.perform([&] {
    EXPECT_TRUE(loop_.isCurrent());
    loop_.perform([&] { isInnerDone = true; });
    isOuterDone = eventuallyOnMainLoop([&] { return isInnerDone; });
  });
  EXPECT_TRUE(eventuallyOnMainLoop([&] { return isOuterDone; }));
  EXPECT_FALSE(loop_.isCurrent());
}

}  // namespace

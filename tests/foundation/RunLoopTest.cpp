#include <atomic>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/RunLoop.h"

namespace foundation {
namespace {

using namespace std::chrono_literals;

bool never() { return false; }

TEST(RunLoop, RunsWorkOfAllThreadsInOrderOnItsOwn) {
  RunLoop& loop = RunLoop::main();
  constexpr int kThreads = 4;
  constexpr int kPieces = 500;
  std::vector<std::vector<int>> seen(kThreads);
  int done = 0;
  std::vector<std::thread> threads;
  const auto home = std::this_thread::get_id();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int n = 0; n < kPieces; ++n) {
        loop.perform([&, t, n] {
          EXPECT_EQ(std::this_thread::get_id(), home);
          seen[static_cast<std::size_t>(t)].push_back(n);
          ++done;
        });
      }
    });
  }
  EXPECT_TRUE(loop.runUntil([&] { return done == kThreads * kPieces; }, 20s));
  for (std::thread& thread : threads) thread.join();
  for (const auto& order : seen) EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(RunLoop, AsksAfterEveryPiece) {
  RunLoop& loop = RunLoop::main();
  int ran = 0;
  for (int i = 0; i < 3; ++i) loop.perform([&] { ++ran; });
  EXPECT_TRUE(loop.runUntil([&] { return ran == 2; }, 20s));
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(loop.runUntil([&] { return ran == 3; }, 20s));
}

TEST(RunLoop, EndsWhenTheTimeIsOver) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(RunLoop::main().runUntil(never, 50ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

TEST(RunLoop, WakesFromItsWaitForWorkAndForAStop) {
  RunLoop& loop = RunLoop::main();
  std::atomic<bool> ran = false;
  std::thread other([&] {
    loop.perform([&] { ran = true; });
    while (!ran) std::this_thread::yield();
    loop.stop();
  });
  const auto start = std::chrono::steady_clock::now();
  loop.run();
  other.join();
  EXPECT_TRUE(ran);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
}

TEST(RunLoop, AStopThatFindsNoRunIsForgotten) {
  RunLoop& loop = RunLoop::main();
  loop.stop();
  bool ran = false;
  loop.perform([&] {
    ran = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(ran);
}

TEST(RunLoop, RunsInsideItself) {
  RunLoop& loop = RunLoop::main();
  std::vector<int> order;
  loop.perform([&] {
    order.push_back(1);
    EXPECT_TRUE(loop.isCurrent());
    loop.perform([&] { order.push_back(2); });
    EXPECT_TRUE(loop.runUntil([&] { return order.size() == 2; }, 20s));
    order.push_back(3);
  });
  EXPECT_TRUE(loop.runUntil([&] { return order.size() == 3; }, 20s));
  EXPECT_THAT(order, testing::ElementsAre(1, 2, 3));
  EXPECT_FALSE(loop.isCurrent());
}

}  // namespace
}  // namespace foundation

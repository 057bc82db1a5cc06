#include <atomic>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/queue/RunLoop.h"

namespace foundation {
namespace {

using namespace std::chrono_literals;

TEST(RunLoop, AsksAfterEveryPieceAndUntilTheTimeIsOver) {
  RunLoop& loop = RunLoop::main();
  int ran = 0;
  for (int i = 0; i < 3; ++i) loop.perform([&] { ++ran; });
  EXPECT_TRUE(loop.runUntil([&] { return ran == 2; }, 20s));
  EXPECT_EQ(ran, 2);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop.runUntil([] { return false; }, 50ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
  EXPECT_EQ(ran, 3);
}

TEST(RunLoop, WakesForTheWorkOfAllThreadsAndRunsItInOrder) {
  RunLoop& loop = RunLoop::main();
  constexpr int kPieces = 500;
  std::vector<std::vector<int>> seen(4);
  int done = 0;
  std::vector<std::thread> threads;
  const auto home = std::this_thread::get_id();
  for (std::size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int n = 0; n < kPieces; ++n) {
        loop.perform([&, t, n] {
          EXPECT_EQ(std::this_thread::get_id(), home);
          seen[t].push_back(n);
          ++done;
        });
      }
    });
  }
  EXPECT_TRUE(loop.runUntil([&] { return done == 4 * kPieces; }, 20s));
  for (std::thread& thread : threads) thread.join();
  for (const auto& order : seen) EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(RunLoop, IsStoppedFromOutsideButNotBeforeItRuns) {
  RunLoop& loop = RunLoop::main();
  loop.stop();
  std::atomic<bool> ran = false;
  std::thread other([&] {
    loop.perform([&] { ran = true; });
    while (!ran) std::this_thread::yield();
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(ran);
  loop.runUntil([&] { return ran.load(); }, 20s);
  other.join();
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

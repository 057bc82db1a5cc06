#include <future>

#include <malloc.h>

#include "foundation/queue/DispatchQueue.h"
#include "tests/support/Test.h"

namespace {

using foundation::DispatchQueue;

TEST(DispatchQueue, ASerialQueueRunsOnePieceAtATimeInOrder) {
  const auto queue = DispatchQueue::serial("one");
  std::vector<std::vector<int>> seen(8);
  int count = 0;  // unguarded on purpose
  std::vector<std::thread> threads;
  for (std::vector<int>& order : seen) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        queue.async([&, i] {
          order.push_back(i);
          ++count;
        });
        queue.sync([&] { ++count; });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 8000);
  for (const auto& order : seen) {
    EXPECT_EQ(order.size(), 500U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
  }
}

TEST(DispatchQueue, SyncRunsOnTheCallersThreadAndPassesExceptionsOn) {
  const auto queue = DispatchQueue::serial("sync");
  EXPECT_THROW(queue.sync([] { throw std::runtime_error("out"); }), std::runtime_error);
  std::thread::id thread;
  queue.sync([&] {
    thread = std::this_thread::get_id();
    EXPECT_TRUE(queue.isCurrent());
  });
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_FALSE(queue.isCurrent());
}

TEST(DispatchQueueDeathTest, SyncFromInsideStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto outer = DispatchQueue::serial("outer");
  const auto inner = DispatchQueue::serial("inner");
  EXPECT_DEATH(outer.sync([&] { inner.sync([&] { outer.sync([] {}); }); }), "isCurrent");
  EXPECT_DEATH(DispatchQueue::main().sync([] {}), "main");
}

TEST(DispatchQueue, AnObjectMayDieOnItsOwnQueue) {
  struct Object {
    DispatchQueue queue = DispatchQueue::serial("own");
    std::promise<bool> died;
    ~Object() {
      queue.syncOrInline([this] { died.set_value(queue.isCurrent()); });
    }
  };
  auto object = std::make_shared<Object>();
  auto died = object->died.get_future();
  const DispatchQueue queue = object->queue;
  queue.async([kept = std::move(object)] {});
  ASSERT_EQ(died.wait_for(kDeadline), std::future_status::ready);
  EXPECT_TRUE(died.get());
  const Object elsewhere;
}

/// 300 pieces that wait for each other in several ways; each calls `done` once.
using Waits = std::function<void(const DispatchQueue& shared, std::function<void()> done)>;
constexpr int kPieces = 300;

TEST(DispatchQueue, NoNumberOfPiecesThatWaitForEachOtherIsTooLarge) {
  const auto opened = std::make_shared<std::promise<void>>();
  const auto gate = opened->get_future().share();
  const auto arrived = std::make_shared<std::atomic<int>>(0);
  const Waits callbacks = [](const DispatchQueue& shared, const auto& done) {
    DispatchQueue::global().async([=] {
      shared.async([] {});
      shared.sync(done);
    });
  };
  const Waits turns = [](const DispatchQueue& shared, const auto& done) {
    DispatchQueue::serial("its own").async([=] {
      DispatchQueue::serial("another").sync([&] { shared.sync([] {}); });
      DispatchQueue::global().async(done);
    });
  };
  const Waits unseen = [=](const DispatchQueue&, const auto& done) {
    DispatchQueue::global().async([=] {
      if (++*arrived == kPieces) opened->set_value();
      gate.wait();
      done();
    });
  };
  const std::size_t threadsBefore = threadCount();
  for (const Waits& waits : {callbacks, turns, unseen}) {
    const auto shared = DispatchQueue::serial("shared");
    const auto count = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < kPieces; ++i) waits(shared, [count] { ++*count; });
    ASSERT_TRUE(eventually([&] { return *count == kPieces; })) << *count;
  }
  EXPECT_TRUE(eventually([&] { return threadCount() <= threadsBefore + 8; })) << threadCount();
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(DispatchQueueDeathTest, GoesOnWithTheThreadsThatCanBeHad) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto runWithFewThreads = [] {
    // Only stacks are to find no room, so the heap gets some beforehand.
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_MMAP_THRESHOLD, 1 << 24);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 24);
    void* volatile reserve = std::malloc(1 << 23);
    std::free(reserve);
    const rlimit limit{.rlim_cur = rlim_t{1} << 28, .rlim_max = rlim_t{1} << 28};
    ::setrlimit(RLIMIT_AS, &limit);
    std::atomic<int> done = 0;
    for (int i = 0; i < kPieces; ++i) {
      DispatchQueue::global().async([&done] {
        std::this_thread::sleep_for(5ms);  // work that keeps its thread
        ++done;
      });
    }
    while (done < kPieces) std::this_thread::yield();
    ::_exit(threadCount() < 50 ? 0 : 1);
  };
  EXPECT_EXIT(runWithFewThreads(), testing::ExitedWithCode(0), "");
}
#endif

TEST(DispatchQueue, DelayedPiecesComeWhenDue) {
  const auto queue = DispatchQueue::serial("later");
  const auto start = std::chrono::steady_clock::now();
  std::vector<int> order;
  std::atomic<bool> isOver = false;
  queue.asyncAfter(60ms, [&] {
    order.push_back(2);
    isOver = true;
  });
  queue.asyncAfter(20ms, [&] { order.push_back(1); });
  ASSERT_TRUE(eventually([&] { return isOver.load(); }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
  EXPECT_THAT(order, ElementsAre(1, 2));
}

}  // namespace

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include "foundation/file/FileEventSource.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using foundation::DispatchQueue;
using foundation::FileEventSource;
using std::chrono::seconds;

template <class Condition>
bool waitUntil(Condition isMet) {
  const auto deadline = std::chrono::steady_clock::now() + seconds(20);
  while (!isMet()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

class FileEventSourceTest : public testing::Test {
 protected:
  ~FileEventSourceTest() override {
    queue_.sync([] {});
  }

  std::shared_ptr<FileEventSource> watch(const fs::path& path) {
    return FileEventSource::watchWrites(path, queue_, [this] { ++calls_; });
  }

  /// True when `write` causes at least one call.
  bool isNoticed(const std::function<void()>& write) {
    if (!settles()) return false;
    const int before = calls_;
    write();
    return waitUntil([&] { return calls_ > before; });
  }

  /// True when `write` causes no call.
  bool isPassedOver(const std::function<void()>& write) {
    if (!settles()) return false;
    const int before = calls_;
    write();
    return settles() && calls_ == before;
  }

  /// True when all calls for previous writes have arrived: the call for a marker in another folder,
  /// watched on the same queue, comes last.
  bool settles() {
    std::atomic<bool> seen = false;
    const auto marker = FileEventSource::watchWrites(marked_.path(), queue_, [&] { seen = true; });
    marked_.write(std::to_string(++marks_), "x");
    const bool isSettled = waitUntil([&] { return seen.load(); });
    marker->cancel();
    queue_.sync([] {});
    return isSettled;
  }

  test::TemporaryFolder folder_;
  test::TemporaryFolder marked_;
  DispatchQueue queue_ = DispatchQueue::serial("test.file-events");
  std::atomic<int> calls_ = 0;
  int marks_ = 0;
};

TEST_F(FileEventSourceTest, AFolderIsWrittenWhenItsEntriesChangeWhereverItGoes) {
  const fs::path moved = folder_ / "moved";
  fs::create_directory(folder_ / "watched");
  fs::create_directory_symlink("watched", folder_ / "link");
  folder_.write("outside", "x");
  const auto source = watch(folder_ / "link");
  ASSERT_TRUE(source);
  EXPECT_TRUE(isPassedOver([&] {
    fs::rename(folder_ / "watched", moved);
    folder_.write("watched/a", "x");
  }));
  EXPECT_TRUE(isNoticed([&] { folder_.write("moved/a", "x"); }));
  EXPECT_TRUE(isNoticed([&] { fs::create_directory(moved / "b"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(moved / "a", moved / "c"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(folder_ / "outside", moved / "in"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(moved / "in", folder_ / "outside"); }));
  EXPECT_TRUE(isNoticed([&] { fs::remove(moved / "c"); }));
  EXPECT_TRUE(isPassedOver([&] {
    folder_.write("moved/b/deeper", "x");
    ::chmod(moved.c_str(), 0711);
    ::utime(moved.c_str(), nullptr);
  }));
  source->cancel();
  EXPECT_FALSE(watch(folder_ / "missing"));
}

TEST_F(FileEventSourceTest, AFileIsWrittenWhenItsContentChanges) {
  const fs::path file = folder_.write("file", "x");
  const auto source = watch(file);
  EXPECT_TRUE(isNoticed([&] { std::ofstream(file, std::ios::app) << "more"; }));
  EXPECT_TRUE(isPassedOver([&] {
    ::chmod(file.c_str(), 0600);
    const std::ifstream opened(file);
  }));
  source->cancel();
}

TEST_F(FileEventSourceTest, SourcesOnOneFolderDoNotDisturbEachOther) {
  const auto first = watch(folder_.path());
  std::atomic<int> others = 0;
  auto second = FileEventSource::watchWrites(folder_.path(), queue_, [&] { ++others; });
  EXPECT_TRUE(isNoticed([&] { folder_.write("a", "x"); }));
  EXPECT_TRUE(waitUntil([&] { return others > 0; }));
  second.reset();
  queue_.sync([] {});
  const int before = others;
  EXPECT_TRUE(isNoticed([&] { folder_.write("b", "x"); }));
  EXPECT_EQ(others, before);
  first->cancel();
}

TEST_F(FileEventSourceTest, EventsDuringAHandlerMergeAndHandlersNeverOverlap) {
  for (const DispatchQueue& queue : {queue_, DispatchQueue::global()}) {
    std::atomic<int> inside = 0;
    std::atomic<int> calls = 0;
    std::atomic<bool> overlaps = false;
    std::atomic<bool> isHeld = true;
    std::atomic<bool> isCancelled = false;
    const auto source = FileEventSource::watchWrites(
        folder_.path(), queue,
        [&] {
          if (inside++ > 0) overlaps = true;
          ++calls;
          waitUntil([&] { return !isHeld; });
          --inside;
        },
        [&] { isCancelled = true; });
    for (int i = 0; i < 50; ++i) folder_.write("f" + std::to_string(i), "x");
    ASSERT_TRUE(waitUntil([&] { return calls == 1; }));
    for (int i = 0; i < 50; ++i) fs::remove(folder_ / ("f" + std::to_string(i)));
    isHeld = false;
    EXPECT_TRUE(waitUntil([&] { return calls > 1 && inside == 0; }));
    source->cancel();
    EXPECT_TRUE(waitUntil([&] { return isCancelled.load(); }));
    EXPECT_LE(calls, 100);
    EXPECT_FALSE(overlaps);
  }
}

TEST_F(FileEventSourceTest, TheCancelHandlerIsTheLastAndRunsOnceOnTheQueue) {
  const std::size_t before = openDescriptors();
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> cancelled = 0;
    std::atomic<int> late = 0;
    std::atomic<bool> elsewhere = false;
    auto source = FileEventSource::watchWrites(
        folder_.path(), queue_,
        [&] {
          if (cancelled > 0) ++late;
          if (!queue_.isCurrent()) elsewhere = true;
        },
        [&] {
          if (!queue_.isCurrent()) elsewhere = true;
          ++cancelled;
        });
    std::thread writer([&] {
      for (int i = 0; i < 5; ++i) folder_.write("r" + std::to_string(round * 5 + i), "x");
    });
    if (round % 2) source->cancel();
    source.reset();
    writer.join();
    ASSERT_TRUE(waitUntil([&] { return cancelled > 0; }));
    queue_.sync([] {});
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(late, 0);
    EXPECT_FALSE(elsewhere);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileEventSourceTest, AHandlerMayCancelAndDestroyItsOwnSource) {
  std::shared_ptr<FileEventSource> source;
  std::atomic<bool> ended = false;
  queue_.sync([&] {
    source = FileEventSource::watchWrites(
        folder_.path(), queue_,
        [&] {
          ++calls_;
          source.reset();
        },
        [&] { ended = true; });
  });
  folder_.write("a", "x");
  EXPECT_TRUE(waitUntil([&] { return ended.load(); }));
  folder_.write("b", "x");
  ASSERT_TRUE(settles());
  EXPECT_EQ(calls_, 1);
}

}  // namespace

#include <utime.h>

#include "foundation/file/FileEventSource.h"
#include "tests/support/Test.h"

namespace {

using foundation::DispatchQueue;
using foundation::FileEventSource;

class FileEventSourceTest : public testing::Test {
 protected:
  ~FileEventSourceTest() override { settle(); }

  std::shared_ptr<FileEventSource> watch(const fs::path& path) {
    return FileEventSource::watchWrites(path, queue_, [this] { ++calls_; });
  }
  /// True when `write` causes at least one call.
  bool isNoticed(const std::function<void()>& write) {
    settle();
    const int before = calls_;
    write();
    settle();
    return calls_ > before;
  }
  /// Waits for the calls for all writes so far: that for a marker in another folder, watched on the
  /// same queue, comes last.
  void settle() {
    std::atomic<bool> seen = false;
    const auto marker = FileEventSource::watchWrites(marked_.path(), queue_, [&] { seen = true; });
    marked_.write(std::to_string(++marks_), "x");
    EXPECT_TRUE(eventually([&] { return seen.load(); }));
    marker->cancel();
    queue_.sync([] {});
  }
  void addFiles(int count) {
    while (count-- > 0) folder_.write("f" + std::to_string(++files_), "x");
  }

  TemporaryFolder folder_;
  TemporaryFolder marked_;
  DispatchQueue queue_ = DispatchQueue::serial("test.file-events");
  std::atomic<int> calls_ = 0;
  int marks_ = 0;
  int files_ = 0;
};

TEST_F(FileEventSourceTest, AFolderIsWrittenWhenItsEntriesChangeWhereverItGoes) {
  const fs::path moved = folder_ / "moved";
  fs::create_directory(folder_ / "watched");
  fs::create_directory_symlink("watched", folder_ / "link");
  folder_.write("outside", "x");
  const auto source = watch(folder_ / "link");
  ASSERT_TRUE(source);
  EXPECT_FALSE(isNoticed([&] {
    fs::rename(folder_ / "watched", moved);
    folder_.write("watched/a", "x");
  }));
  EXPECT_TRUE(isNoticed([&] { folder_.write("moved/a", "x"); }));
  EXPECT_TRUE(isNoticed([&] { fs::create_directory(moved / "b"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(moved / "a", moved / "c"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(folder_ / "outside", moved / "in"); }));
  EXPECT_TRUE(isNoticed([&] { fs::rename(moved / "in", folder_ / "outside"); }));
  EXPECT_TRUE(isNoticed([&] { fs::remove(moved / "c"); }));
  EXPECT_FALSE(isNoticed([&] {
    folder_.write("moved/b/deeper", "x");
    ::chmod(moved.c_str(), 0711);
    ::utime(moved.c_str(), nullptr);
  }));
  source->cancel();
  EXPECT_FALSE(watch(folder_ / "missing"));
}

TEST_F(FileEventSourceTest, AFileIsWrittenWhenItsContentChangesForEachOfItsSources) {
  const fs::path file = folder_.write("file", "x");
  const auto source = watch(file);
  std::atomic<int> others = 0;
  auto other = FileEventSource::watchWrites(file, queue_, [&] { ++others; });
  EXPECT_TRUE(isNoticed([&] { std::ofstream(file, std::ios::app) << "more"; }));
  EXPECT_GT(others, 0);
  other.reset();
  queue_.sync([] {});
  const int before = others;
  EXPECT_FALSE(isNoticed([&] {
    ::chmod(file.c_str(), 0600);
    const std::ifstream opened(file);
  }));
  EXPECT_TRUE(isNoticed([&] { std::ofstream(file, std::ios::app) << "more"; }));
  EXPECT_EQ(others, before);
  source->cancel();
}

TEST_F(FileEventSourceTest, EventsDuringAHandlerMergeAndHandlersNeverOverlap) {
  for (const DispatchQueue& queue : {queue_, DispatchQueue::global()}) {
    std::atomic<int> inside = 0, calls = 0;
    std::atomic<bool> isHeld = true, isCancelled = false;
    const auto source = FileEventSource::watchWrites(
        folder_.path(), queue,
        [&] {
          EXPECT_EQ(inside++, 0);
          ++calls;
          eventually([&] { return !isHeld; });
          --inside;
        },
        [&] { isCancelled = true; });
    addFiles(50);
    ASSERT_TRUE(eventually([&] { return calls == 1; }));
    addFiles(50);
    isHeld = false;
    EXPECT_TRUE(eventually([&] { return calls > 1 && inside == 0; }));
    source->cancel();
    EXPECT_TRUE(eventually([&] { return isCancelled.load(); }));
    EXPECT_LE(calls, 100);
  }
}

TEST_F(FileEventSourceTest, TheCancelHandlerIsTheLastAndRunsOnceOnTheQueue) {
  const std::size_t before = openDescriptors();
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> cancelled = 0;
    auto source = FileEventSource::watchWrites(
        folder_.path(), queue_,
        [&] {
          EXPECT_TRUE(queue_.isCurrent());
          EXPECT_EQ(cancelled, 0);
        },
        [&] {
          EXPECT_TRUE(queue_.isCurrent());
          ++cancelled;
        });
    std::thread writer([&] { addFiles(5); });
    if (round % 2) source->cancel();
    source.reset();
    writer.join();
    ASSERT_TRUE(eventually([&] { return cancelled > 0; }));
    queue_.sync([] {});
    EXPECT_EQ(cancelled, 1);
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
  EXPECT_TRUE(eventually([&] { return ended.load(); }));
  folder_.write("b", "x");
  settle();
  EXPECT_EQ(calls_, 1);
}

}  // namespace

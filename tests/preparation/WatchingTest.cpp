#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include <gtest/gtest.h>

#include "preparation/QVTFileSystemUtils.h"
#include "tests/support/TemporaryFolder.h"

namespace {

/// Counts calls from other threads, and waits for them.
class Counter {
 public:
  void add() {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  /// True once there have been more than `before` calls; false when none comes in time.
  bool waitForMoreThan(int before) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return count_ > before; });
  }
  int count() {
    const std::lock_guard lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

TEST(Watching, TellsOfWritesInAFolder) {
  const test::TemporaryFolder folder;
  Counter counter;
  const auto source = QVTFileSystemUtils::createDispatchSourceObservePathChangeHandler(
      folder.path(), [&] { counter.add(); });
  ASSERT_TRUE(source);
  folder.write("file", "x");
  EXPECT_TRUE(counter.waitForMoreThan(0));
  const int before = counter.count();
  std::filesystem::remove(folder / "file");
  EXPECT_TRUE(counter.waitForMoreThan(before));
  source->cancel();
  EXPECT_FALSE(
      QVTFileSystemUtils::createDispatchSourceObservePathChangeHandler(folder / "missing", [] {}));
}

TEST(Watching, TellsOfAFileOnlyWhileItIsThere) {
  const test::TemporaryFolder folder;
  Counter writes;
  Counter sightings;
  // Both watch the same folder; the first says when the second has had its chance.
  const auto file = QVTFileSystemUtils::createDispatchSourceFileAtPathIsAvailable(
      folder / "wanted", [&] { sightings.add(); });
  const auto all = QVTFileSystemUtils::createDispatchSourceObservePathChangeHandler(
      folder.path(), [&] { writes.add(); });
  ASSERT_TRUE(file && all);
  folder.write("other", "x");
  ASSERT_TRUE(writes.waitForMoreThan(0));
  EXPECT_EQ(sightings.count(), 0);
  folder.write("wanted", "x");
  ASSERT_TRUE(sightings.waitForMoreThan(0));
  const int before = sightings.count();
  folder.write("another", "x");
  EXPECT_TRUE(sightings.waitForMoreThan(before));
  file->cancel();
  all->cancel();
  EXPECT_FALSE(QVTFileSystemUtils::createDispatchSourceFileAtPathIsAvailable(
      folder / "missing/wanted", [] {}));
}

}  // namespace

#include <chrono>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/queue/NotificationCenter.h"
#include "foundation/queue/RunLoop.h"
#include "tests/xcode/ArchiveFixture.h"
#include "xcode/QVTXcodeArchiveMonitor.h"

namespace {

namespace fs = std::filesystem;
using foundation::NotificationCenter;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr seconds kLimit{20};
constexpr char kNotFound[] = "Unable to find path for archive monitoring";

std::size_t openDescriptors() {
  // The main loop opens descriptors of its own at its first run, and keeps them.
  foundation::RunLoop::main().runUntil([] { return true; }, milliseconds(1));
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

class QVTXcodeArchiveMonitorTest : public testing::Test {
 protected:
  fs::path addDay(const std::string& day) {
    fs::create_directories(home_.location() / day);
    return home_.location() / day;
  }

  /// Looks often, since what it waits for need not be the main loop's own work.
  template <class Condition>
  static bool waitUntil(Condition isMet) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (!foundation::RunLoop::main().runUntil(isMet, milliseconds(5))) {
      if (std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
  }

  /// Runs the main loop until all that was decided to be announced by now has been.
  static void passDelay(QVTXcodeArchiveMonitor& monitor) {
    bool isOver = false;
    monitor.queue().sync([] {});
    foundation::DispatchQueue::main().asyncAfter(milliseconds(1100), [&] { isOver = true; });
    EXPECT_TRUE(waitUntil([&] { return isOver; }));
  }

  test::ArchivesHome home_;
  std::vector<std::string> posted_;
  bool wasElsewhere_ = false;
  NotificationCenter::Token token_ = NotificationCenter::defaultCenter().addObserver(
      QVTXcodeArchiveChangedNotification, [this](const auto& notification) {
        posted_.push_back(*notification.object.string());
        if (!foundation::DispatchQueue::main().isCurrent()) wasElsewhere_ = true;
      });
};

TEST_F(QVTXcodeArchiveMonitorTest, WithoutALocationNothingIsWatched) {
  testing::internal::CaptureStderr();
  const QVTXcodeArchiveMonitor monitor;
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(kNotFound));
  EXPECT_FALSE(monitor.archiveSource());
  EXPECT_FALSE(monitor.currentArchiveSource());
  EXPECT_EQ(monitor.archivesDirCount(), 0U);
  EXPECT_EQ(monitor.queue().label(), "com.quorvantile.XcodeArchiveMonitor");
}

TEST_F(QVTXcodeArchiveMonitorTest, AnEmptyLocationHasNoInnerWatchUntilItsFirstDay) {
  fs::create_directories(home_.location());
  QVTXcodeArchiveMonitor monitor;
  EXPECT_TRUE(monitor.archiveSource());
  EXPECT_FALSE(monitor.currentArchiveSource());
  const auto started = std::chrono::steady_clock::now();
  const std::string day = addDay("2015-03-01").string();
  ASSERT_TRUE(waitUntil([&] { return !posted_.empty(); }));
  EXPECT_GE(std::chrono::steady_clock::now() - started, seconds(1));
  EXPECT_TRUE(monitor.currentArchiveSource());
  home_.addArchive("2015-03-01", "One", "com.example.one", "03-01");
  ASSERT_TRUE(waitUntil([&] { return posted_.size() > 1; }));
  EXPECT_THAT(posted_, ElementsAre(home_.location().string(), day));
  EXPECT_FALSE(wasElsewhere_);
}

TEST_F(QVTXcodeArchiveMonitorTest, RemovalsAreSilentAndLowerTheCount) {
  const std::string day = addDay("2015-03-01").string();
  fs::create_directory(fs::path(day) / ".hidden");
  const fs::path one = home_.addArchive("2015-03-01", "One", "com.example.one", "03-01");
  QVTXcodeArchiveMonitor monitor;
  EXPECT_EQ(monitor.latestArchivesDirCount(), 1U);
  fs::remove_all(one);
  ASSERT_TRUE(waitUntil([&] { return monitor.latestArchivesDirCount() == 0; }));
  passDelay(monitor);
  EXPECT_TRUE(posted_.empty());
  home_.addArchive("2015-03-01", "One", "com.example.one", "03-01");
  ASSERT_TRUE(waitUntil([&] { return !posted_.empty(); }));
  EXPECT_THAT(posted_, Each(day));
}

TEST_F(QVTXcodeArchiveMonitorTest, KeepsCountUnderChurn) {
  constexpr int kArchives = 300;
  const std::string day = addDay("2015-03-01").string();
  const std::size_t descriptors = openDescriptors();
  {
    QVTXcodeArchiveMonitor monitor;
    std::thread churn([&] {
      for (int i = 0; i < kArchives; ++i) {
        const auto made = home_.addArchive("2015-03-01", "A" + std::to_string(i), "com.a", "03-01");
        if (i % 3 == 0) fs::remove_all(made);
        if (i % 50 == 0) {
          const auto brief = addDay("brief" + std::to_string(i));
          if (i % 100 == 0) fs::remove_all(brief);
        }
      }
    });
    churn.join();
    EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 4; }));
    EXPECT_TRUE(waitUntil([&] { return !posted_.empty(); }));
    EXPECT_THAT(posted_, Each(HasSubstr(home_.location().string())));
    EXPECT_EQ(QVTXcodeArchiveMonitor::allArchives().size(), std::size_t{kArchives} * 2 / 3);

    // The newest folder is watched to the end: the outer growth moved the inner watch there.
    const std::string last = addDay("last").string();
    EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 5; }));
    monitor.queue().sync([] {});
    home_.addArchive("last", "Last", "com.a", "03-01");
    EXPECT_TRUE(waitUntil([&] { return monitor.latestArchivesDirCount() == 1; }));
    passDelay(monitor);
    EXPECT_THAT(posted_, Contains(last));
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(QVTXcodeArchiveMonitorTest, ALocationMadeAgainIsNotWatched) {
  addDay("2015-03-01");
  const std::size_t descriptors = openDescriptors();
  {
    QVTXcodeArchiveMonitor monitor;
    testing::internal::CaptureStderr();
    // Held meanwhile, so that it does not count between the day's removal and the location's.
    monitor.queue().sync([&] { fs::remove_all(home_.location()); });
    EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 0; }));
    passDelay(monitor);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Unable to read contents of directory " + home_.location().string()));
    posted_.clear();
    addDay("2015-03-02");
    home_.addArchive("2015-03-02", "Two", "com.example.two", "03-02");
    passDelay(monitor);
    EXPECT_TRUE(posted_.empty());
    monitor.observeArchives();
    addDay("2015-03-03");
    EXPECT_TRUE(waitUntil([&] { return !posted_.empty(); }));
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(QVTXcodeArchiveMonitorTest, MayBeDestroyedOnItsOwnQueueAndWhileItIsBusy) {
  addDay("2015-03-01");
  const std::size_t descriptors = openDescriptors();
  for (int round = 0; round < 20; ++round) {
    auto monitor = QVTXcodeArchiveMonitor::init();
    const std::weak_ptr<QVTXcodeArchiveMonitor> destroyed = monitor;
    const auto queue = monitor->queue();
    const std::weak_ptr<foundation::FileEventSource> watch = monitor->archiveSource();
    std::thread writer([&] { fs::remove_all(addDay("d" + std::to_string(round))); });
    if (round % 2) {
      queue.async([owned = std::move(monitor)]() mutable { owned.reset(); });
    } else {
      monitor.reset();
    }
    writer.join();
    queue.sync([] {});
    EXPECT_TRUE(destroyed.expired() && watch.expired()) << "round " << round;
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(QVTXcodeArchiveMonitorTest, ListsAllArchivesAndPicksTheNewest) {
  addDay("2015-03-01");
  addDay("2015-03-02");
  addDay("2015-03-02/empty.xcarchive");
  addDay(".hidden");
  home_.folder().write(fs::relative(home_.location() / "file", home_.folder().path()), "x");
  home_.addArchive("2015-03-01", "Old", "com.example.App", "03-01");
  const auto newest = home_.addArchive("2015-03-01", "New", "COM.example.app", "03-09");
  home_.addArchive("2015-03-02", "Middle", "com.example.app", "03-05");
  home_.addArchive("2015-03-02", "Other", "com.example.other", "04-01");
  home_.addArchive("2015-03-02", "Nameless", "", "04-01");
  home_.addArchive(".hidden", "Hidden", "com.example.app", "05-01");
  EXPECT_EQ(QVTXcodeArchiveMonitor::allArchives().size(), 5U);
  const auto latest =
      QVTXcodeArchiveMonitor::latestArchiveMatchingBundleIdentifier("com.example.APP");
  ASSERT_TRUE(latest);
  EXPECT_THAT(*latest->path(), testing::StartsWith(newest.string()));
  EXPECT_FALSE(QVTXcodeArchiveMonitor::latestArchiveMatchingBundleIdentifier("com.example"));
  const auto nameless = QVTXcodeArchiveMonitor::latestArchiveMatchingBundleIdentifier("");
  ASSERT_TRUE(nameless);
  EXPECT_THAT(*nameless->path(), HasSubstr("/Nameless.xcarchive/"));
}

TEST_F(QVTXcodeArchiveMonitorTest, WhatCannotBeReadIsTheOldest) {
  testing::internal::CaptureStderr();
  const auto missing = foundation::URL::fileURLWithPath("/missing/a b");
  EXPECT_EQ(QVTXcodeArchiveMonitor::modifiedDateForObject(missing), foundation::Date::min());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Unable to read modification date for file file:///missing/a%20b"));
  const fs::path older = addDay("older");
  const fs::path newer = addDay("newer");
  fs::last_write_time(older, fs::last_write_time(newer) - seconds(5));
  EXPECT_EQ(QVTXcodeArchiveMonitor::latestPathInDirectory(home_.location().string()),
            newer.string());
  EXPECT_EQ(QVTXcodeArchiveMonitor::latestPathInDirectory(older.string()), std::nullopt);
  EXPECT_EQ(QVTXcodeArchiveMonitor::contentsCountAtPath(std::nullopt), 0U);
}

}  // namespace

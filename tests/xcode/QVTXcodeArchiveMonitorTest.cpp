#include "foundation/queue/NotificationCenter.h"
#include "tests/support/Test.h"
#include "xcode/QVTXcodeArchiveMonitor.h"

namespace {

using foundation::NotificationCenter;
using foundation::RunLoop;
using Monitor = QVTXcodeArchiveMonitor;

class QVTXcodeArchiveMonitorTest : public testing::Test {
 protected:
  // At its first run the main loop opens descriptors of its own, and keeps them.
  void SetUp() override {
    waitUntil([] { return true; });
  }

  std::string addDay(const std::string& day) const {
    fs::create_directories(location_ / day);
    return location_ / day;
  }
  /// A whole archive, made elsewhere and moved into the day's folder, which must be there.
  fs::path addArchive(const std::string& day, const std::string& name) const {
    writePlist(home_ / "made/Info.plist", {{"Name", "App"}});
    fs::create_directories(home_ / "made/Products/Applications/App.app");
    fs::rename(home_ / "made", location_ / day / name);
    return location_ / day / name;
  }
  /// Looks often, since what it waits for need not be the main loop's own work.
  static bool waitUntil(const std::function<bool()>& isMet) {
    return eventually([&] { return RunLoop::main().runUntil(isMet, 5ms); });
  }
  bool waitForPosts(std::size_t count) const {
    return waitUntil([&] { return posted_.size() >= count; });
  }

  const TemporaryFolder home_;
  const ScopedEnvironment variable_{"HOME", home_.path().c_str()};
  const fs::path location_ = home_ / "Library/Developer/Xcode/Archives";
  std::vector<std::string> posted_;
  NotificationCenter::Token token_ = NotificationCenter::defaultCenter().addObserver(
      QVTXcodeArchiveChangedNotification, [this](const auto& notification) {
        EXPECT_TRUE(foundation::DispatchQueue::main().isCurrent());
        posted_.push_back(*notification.object.string());
      });
};

TEST_F(QVTXcodeArchiveMonitorTest, WithoutALocationNothingIsWatched) {
  const auto log = logOf([] {
    const Monitor monitor;
    EXPECT_FALSE(monitor.archiveSource());
    EXPECT_FALSE(monitor.currentArchiveSource());
    EXPECT_EQ(monitor.archivesDirCount(), 0U);
  });
  EXPECT_THAT(log, HasSubstr("Unable to find path for archive monitoring"));
}

TEST_F(QVTXcodeArchiveMonitorTest, GrowthIsPostedAndRemovalsAreSilent) {
  fs::create_directories(location_);
  const Monitor monitor;
  EXPECT_TRUE(monitor.archiveSource());
  EXPECT_FALSE(monitor.currentArchiveSource()) << "until there is a day";
  const auto started = std::chrono::steady_clock::now();
  const std::string day = addDay("2015-03-01");
  ASSERT_TRUE(waitForPosts(1));
  EXPECT_GE(std::chrono::steady_clock::now() - started, 1s);
  EXPECT_TRUE(monitor.currentArchiveSource());
  fs::create_directory(day + "/.hidden");
  const auto hasArchives = [&](std::size_t count) {
    return waitUntil([&] { return monitor.latestArchivesDirCount() == count; });
  };
  const fs::path one = addArchive("2015-03-01", "One");
  ASSERT_TRUE(hasArchives(1));
  fs::remove_all(one);
  ASSERT_TRUE(hasArchives(0));
  addArchive("2015-03-01", "One");
  ASSERT_TRUE(hasArchives(1));
  addDay("2015-03-02");
  // Posts come in the order of their causes, so one for the removal would be the third.
  ASSERT_TRUE(waitForPosts(4));
  EXPECT_THAT(posted_, ElementsAre(location_, day, day, location_));
}

TEST_F(QVTXcodeArchiveMonitorTest, KeepsCountUnderChurn) {
  constexpr std::size_t kArchives = 300;
  addDay("2015-03-01");
  const std::size_t descriptors = openDescriptors();
  {
    const Monitor monitor;
    std::thread churn([&] {
      for (std::size_t i = 0; i < kArchives; ++i) {
        const auto made = addArchive("2015-03-01", "A" + std::to_string(i));
        if (i % 3 == 0) fs::remove_all(made);
        if (i % 50 != 0) continue;
        const auto brief = addDay("brief" + std::to_string(i));
        if (i % 100 == 0) fs::remove_all(brief);
      }
    });
    churn.join();
    EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 4; }));
    EXPECT_TRUE(waitForPosts(1));
    EXPECT_THAT(posted_, Each(StartsWith(location_)));
    EXPECT_EQ(Monitor::allArchives().size(), kArchives * 2 / 3);

    // The newest folder is watched to the end: the outer growth moved the inner watch there.
    const std::string last = addDay("last");
    EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 5; }));
    monitor.queue().sync([] {});
    addArchive("last", "Last");
    EXPECT_TRUE(waitUntil([&] { return monitor.latestArchivesDirCount() == 1; }));
    EXPECT_TRUE(waitUntil([&] { return !posted_.empty() && posted_.back() == last; }));
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(QVTXcodeArchiveMonitorTest, ALocationMadeAgainIsNotWatched) {
  addDay("2015-03-01");
  const std::size_t descriptors = openDescriptors();
  {
    Monitor monitor;
    const auto log = logOf([&] {
      // Held meanwhile, so that it does not count between the day's removal and the location's.
      monitor.queue().sync([&] { fs::remove_all(location_); });
      EXPECT_TRUE(waitUntil([&] { return monitor.archivesDirCount() == 0; }));
    });
    EXPECT_THAT(log, HasSubstr("Unable to read contents of directory " + location_.string()));
    const std::string day = addDay("2015-03-02");
    monitor.observeArchives();
    addArchive("2015-03-02", "Two");
    ASSERT_TRUE(waitForPosts(1));
    EXPECT_THAT(posted_, ElementsAre(day)) << "before the day's comes none for the location";
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(QVTXcodeArchiveMonitorTest, MayBeDestroyedOnItsOwnQueueAndWhileItIsBusy) {
  addDay("2015-03-01");
  const std::size_t descriptors = openDescriptors();
  for (int round = 0; round < 20; ++round) {
    auto monitor = Monitor::init();
    const std::weak_ptr<Monitor> destroyed = monitor;
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

TEST_F(QVTXcodeArchiveMonitorTest, WhatCannotBeReadIsTheOldest) {
  const auto log = logOf([] {
    const auto missing = foundation::URL::fileURLWithPath("/missing/a b");
    EXPECT_EQ(Monitor::modifiedDateForObject(missing), Date::min());
  });
  EXPECT_THAT(log, HasSubstr("Unable to read modification date for file file:///missing/a%20b"));
  const std::string older = addDay("older");
  const std::string newer = addDay("newer");
  fs::last_write_time(older, fs::last_write_time(newer) - 5s);
  EXPECT_EQ(Monitor::latestPathInDirectory(location_.string()), newer);
  EXPECT_EQ(Monitor::latestPathInDirectory(older), std::nullopt);
  EXPECT_EQ(Monitor::contentsCountAtPath(std::nullopt), 0U);
}

}  // namespace

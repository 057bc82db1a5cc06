// `archives --watch`, and runs that are interrupted, as processes of their own.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <signal.h>

#include "foundation/process/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/xcode/ArchiveFixture.h"

namespace {

namespace fs = std::filesystem;

/// The program with its output in a file; interrupted at the end of the scope.
class Watch {
 public:
  explicit Watch(const fs::path& log) : log_(log) {
    auto child = foundation::ChildProcess::launch(
        {.executable = "/bin/sh",
         .arguments = {"-c", "exec \"$0\" archives --watch >\"$1\"", SENDOFF_INSPECT, log_}});
    if (!child) throw std::runtime_error(child.error().localizedDescription());
    child_.emplace(std::move(*child));
  }
  ~Watch() {
    if (child_->isRunning()) ::kill(child_->processIdentifier(), SIGKILL);
  }
  foundation::Termination interrupt() {
    ::kill(child_->processIdentifier(), SIGINT);
    return child_->waitUntilExit();
  }
  /// Waits until the line stands in the output so many times.
  bool hasPrinted(const std::string& line, int times) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
      if (count(line) >= times) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

 private:
  int count(const std::string& wanted) const {
    std::ifstream file(log_);
    int found = 0;
    for (std::string line; std::getline(file, line);) found += line == wanted;
    return found;
  }
  fs::path log_;
  std::optional<foundation::ChildProcess> child_;
};

TEST(ArchivesWatch, WaitsForTheLocationTellsOfArchivesAndGoesOnInANewOne) {
  const test::ArchivesHome home;
  const std::string location = home.location();
  Watch watch(home.folder() / "log");
  EXPECT_TRUE(watch.hasPrinted("not there yet, waiting for it: " + location, 1));
  for (int round = 1; round <= 2; ++round) {
    fs::create_directories(home.location());
    ASSERT_TRUE(watch.hasPrinted("watching " + location, round));
    fs::create_directories(home.location() / "03-01");
    EXPECT_TRUE(watch.hasPrinted("new archive in " + location, round));
    home.addArchive("03-01", "App", "com.example.app", "03-01");
    EXPECT_TRUE(watch.hasPrinted("new archive in " + location + "/03-01", round));
    fs::remove_all(home.location());
    EXPECT_TRUE(watch.hasPrinted("gone, waiting for it to come back: " + location, round));
  }
  const auto end = watch.interrupt();
  EXPECT_EQ(end.reason, foundation::Termination::Reason::signalled);
  EXPECT_EQ(end.status, SIGINT);
}

/// A slow `unzip` that has begun to write when the user has enough.
TEST(Interruption, LeavesNothingOfAnInflatedIPA) {
  const test::TemporaryFolder folder;
  fs::create_directories(folder / "tmp");
  fs::create_directories(folder / "bin");
  folder.write("App.ipa", "any");
  fs::permissions(folder.write("bin/unzip", "#!/bin/sh\necho $$ >\"" + (folder / "pid").string() +
                                                "\"\nexec sleep 600\n"),
                  fs::perms::owner_all);
  auto child = foundation::ChildProcess::launch(
      {.executable = "/bin/sh",
       .arguments = {"-c",
                     "cd \"$1\" && TMPDIR=\"$1/tmp\" PATH=\"$1/bin:$PATH\" exec \"$0\" app App.ipa",
                     SENDOFF_INSPECT, folder.path()}});
  ASSERT_TRUE(child);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  std::string pid;
  while (pid.empty() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::ifstream(folder / "pid") >> pid;
  }
  ASSERT_FALSE(pid.empty());
  EXPECT_FALSE(fs::is_empty(folder / "tmp"));
  ::kill(child->processIdentifier(), SIGINT);
  const auto end = child->waitUntilExit();
  EXPECT_EQ(end.reason, foundation::Termination::Reason::signalled);
  EXPECT_EQ(end.status, SIGINT);
  EXPECT_TRUE(fs::is_empty(folder / "tmp"));
  EXPECT_FALSE(fs::exists("/proc/" + pid));
}

}  // namespace

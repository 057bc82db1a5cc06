// Whole runs in which one system call fails.
//
//   FAULT_WALK=full        every single call instead of one for each chain of callers
//   FAULT_WALK=KIND:WHICH  this one only
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "tests/faults/FaultyRun.h"

namespace test {
namespace {

constexpr std::size_t kRunsAtOnce = 2;
/// Runs with a fault until one comes to the call that is to fail.
constexpr int kAttempts = 5;

/// One fault for each chain of callers; of those that both routes have, the first route's.
std::vector<Fault> onePerSite(const std::vector<Calls>& routes) {
  std::vector<Fault> faults;
  std::set<std::string> seen;
  for (const Calls& calls : routes) {
    for (const Fault& site : calls.sites) {
      if (seen.insert(site.kind + site.which).second) faults.push_back(site);
    }
  }
  return faults;
}

std::vector<Fault> everyCall(const std::vector<Calls>& routes) {
  std::vector<Fault> faults;
  Route route = Route::ipa;
  for (const Calls& calls : routes) {
    for (const auto& [kind, count] : calls.counts) {
      for (long number = 1; number <= count; ++number) {
        faults.push_back(
            {.route = route, .kind = kind, .which = std::to_string(number), .isNumbered = true});
      }
    }
    route = Route::archive;
  }
  return faults;
}

/// Those faults that a full disk has once more, by a quota.
std::vector<Fault> withQuotas(std::vector<Fault> faults) {
  const std::set<std::string> onFullDisks = {"write", "copy",     "create",
                                             "mkdir", "truncate", "link"};
  for (std::size_t i = 0, count = faults.size(); i < count; ++i) {
    if (!onFullDisks.contains(faults[i].kind)) continue;
    faults.push_back(faults[i]);
    faults.back().isQuota = true;
  }
  return faults;
}

class Walk {
 public:
  Walk(std::vector<Fault> faults, int attempts) : faults_(std::move(faults)), attempts_(attempts) {}

  void go(std::vector<std::unique_ptr<FaultyRun>>& places) {
    std::vector<std::thread> threads;
    for (auto& place : places) threads.emplace_back([this, &place] { work(*place); });
    for (std::thread& thread : threads) thread.join();
  }

  std::vector<std::string> problems;
  /// Faults whose call no attempt came to.
  std::vector<std::string> missed;

 private:
  void work(FaultyRun& place) {
    for (std::size_t index; (index = next_++) < faults_.size();) {
      const Fault& fault = faults_[index];
      std::vector<std::string> found;
      bool wasMet = false;
      for (int attempt = 0; attempt < attempts_ && !wasMet && found.empty(); ++attempt) {
        found = place.check(fault, wasMet);
      }
      const std::lock_guard lock(mutex_);
      if (!wasMet) missed.push_back(fault.text());
      for (std::string& problem : found) {
        std::cout << problem << std::endl;
        problems.push_back(std::move(problem));
      }
      if ((index + 1) % 500 == 0) std::cout << index + 1 << " of " << faults_.size() << std::endl;
    }
  }

  std::vector<Fault> faults_;
  int attempts_;
  std::atomic<std::size_t> next_{0};
  std::mutex mutex_;
};

TEST(FaultInjection, EveryRunEndsInOrder) {
  const char* const mode = std::getenv("FAULT_WALK");
  std::vector<std::unique_ptr<FaultyRun>> places;
  std::vector<Calls> routes;
  for (std::size_t i = 0; i < kRunsAtOnce; ++i) {
    places.push_back(std::make_unique<FaultyRun>());
    routes = {places.back()->record(Route::ipa), places.back()->record(Route::archive)};
  }
  std::vector<Fault> faults =
      withQuotas(mode && std::string_view(mode) == "full" ? everyCall(routes) : onePerSite(routes));
  if (mode && std::string_view(mode) != "full") {
    std::erase_if(faults, [&](const Fault& f) { return f.kind + ":" + f.which != mode; });
  }
  const std::size_t count = faults.size();
  ASSERT_GT(count, 0u);
  Walk walk(std::move(faults), mode ? 1 : kAttempts);
  walk.go(places);
  EXPECT_EQ(walk.problems, std::vector<std::string>());
  std::cout << count - walk.missed.size() << " of " << count << " faults met\n";
  // Some calls depend on the time that things take.
  if (!mode) {
    EXPECT_LE(walk.missed.size(), count / 100) << testing::PrintToString(walk.missed);
  }
}

}  // namespace
}  // namespace test

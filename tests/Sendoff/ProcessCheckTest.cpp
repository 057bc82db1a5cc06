#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Sendoff/ProcessCheck.h"
#include "foundation/process/ChildProcess.h"
#include "foundation/process/ProcessInfo.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace {

/// The answers for "xcodebuild", "Xcode" and the probe's own name, from the end of a tree of
/// processes with these names.
std::string answersBelow(const std::vector<std::string>& names) {
  const test::TemporaryFolder folder;
  std::vector<std::string> command;
  for (const std::string& name : names) {
    const auto link = folder / name;
    if (!std::filesystem::is_symlink(link)) std::filesystem::create_symlink(PROCESS_PROBE, link);
    command.push_back(link);
    command.emplace_back("run");
  }
  for (const char* const last : {PROCESS_PROBE, "ask", "xcodebuild", "Xcode", "process_probe"}) {
    command.emplace_back(last);
  }
  auto child = foundation::ChildProcess::launch(
      {.executable = command[0], .arguments = {command.begin() + 1, command.end()}});
  if (!child) return child.error().localizedDescription();
  child->waitUntilExit();
  return std::string(child->readStandardOutputToEnd().text());
}

TEST(ProcessCheck, FindsNamesAnywhereAboveAndItsOwn) {
  const struct {
    std::vector<std::string> names;
    const char* answers;  // "xcodebuild", "Xcode", its own
  } cases[] = {
      {{}, "001"},
      {{"xcodebuild"}, "101"},
      {{"Xcode"}, "011"},
      {{"Xcode", "xcodebuild", "sh"}, "111"},
      {{"xcodebuild", "sh", "make"}, "101"},
      {{"XCODE", "Xcode2", "my Xcode", "xcodebuild-wrap"}, "001"},
      {{"a) S 0 (Xcode", "Xcode) S 0 ("}, "001"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(answersBelow(c.names), c.answers) << testing::PrintToString(c.names);
  }
}

TEST(ProcessCheck, AnEmptyNameIsNobodys) { EXPECT_FALSE(isProcessNameInHierarchy("")); }

/// The processor time of a thread.
std::chrono::nanoseconds timeOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST(ProcessCheck, AFailedQueryIsRepeated) {
  EXPECT_EQ(test::inChildProcess([]() -> std::string {
              ::prctl(PR_SET_NAME, "Xcode");
              struct rlimit before {};
              ::getrlimit(RLIMIT_NOFILE, &before);
              const struct rlimit none { 0, before.rlim_max };
              std::atomic<bool> isStarted = false;
              std::atomic<bool> isLimited = false;
              std::atomic<bool> isRelieved = false;
              std::atomic<bool> hasAnswer = false;
              // Relief comes once the check has used far more time than one query takes.
              clockid_t clock{};
              ::pthread_getcpuclockid(::pthread_self(), &clock);
              std::chrono::nanoseconds enough{};
              // Started before the limit: a sanitizer looks at a new thread through a descriptor.
              std::thread relief([&] {
                isStarted = true;
                while (!isLimited) std::this_thread::yield();
                while (!hasAnswer && timeOf(clock) < enough) std::this_thread::yield();
                isRelieved = true;
                ::setrlimit(RLIMIT_NOFILE, &before);
              });
              while (!isStarted) std::this_thread::yield();
              ::setrlimit(RLIMIT_NOFILE, &none);
              const bool queryFails = !foundation::processRecord(::getpid());
              enough = timeOf(clock) + std::chrono::milliseconds(20);
              isLimited = true;
              const bool found = isProcessNameInHierarchy("Xcode");
              const bool wasRelieved = isRelieved;
              hasAnswer = true;
              relief.join();
              if (!queryFails) return "the query does not fail";
              return std::string(found ? "found" : "not found") +
                     (wasRelieved ? " after relief" : " before relief");
            }),
            "found after relief");
}

TEST(ProcessCheck, EndsWithoutDescriptorsThatAnybodyWillFree) {
  struct Case {
    const char* name;
    bool isLimitedBefore;
    const char* found;
  };
  for (const Case& c :
       {Case{"one set aside", false, "found"}, Case{"not even one", true, "not found"}}) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(test::inChildProcess([&c]() -> std::string {
                ::alarm(20);
                ::prctl(PR_SET_NAME, "Xcode");
                const struct rlimit few { 0, 64 };
                if (c.isLimitedBefore) ::setrlimit(RLIMIT_NOFILE, &few);
                foundation::reserveDescriptorForProcessRecords();
                const struct rlimit some { 64, 64 };
                if (!c.isLimitedBefore) ::setrlimit(RLIMIT_NOFILE, &some);
                while (::dup(2) >= 0) {
                }
                return isProcessNameInHierarchy("Xcode") ? "found" : "not found";
              }),
              c.found);
  }
}

/// Runs `work` in a process whose parent lies outside its pid namespace, so that the parent's id is
/// 0 there.
std::string insidePidNamespace(const std::function<std::string()>& work) {
  return test::inChildProcess([&work]() -> std::string {
    if (::unshare(CLONE_NEWPID | CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      return "not allowed";
    }
    int ready[2];
    if (::pipe(ready) != 0) return "no pipe";
    const pid_t first = ::fork();  // the namespace ends with its first process
    if (first == 0) {
      const char mounted = ::mount("proc", "/proc", "proc", 0, nullptr) == 0 ? 'y' : 'n';
      if (::write(ready[1], &mounted, 1) == 1) ::pause();
      ::_exit(0);
    }
    char mounted = 'n';
    if (::read(ready[0], &mounted, 1) != 1 || mounted != 'y') return "not allowed";
    const std::string answer = test::inChildProcess(work);
    ::kill(first, SIGKILL);
    ::waitpid(first, nullptr, 0);
    return answer;
  });
}

TEST(ProcessCheck, EndsInsideAPidNamespace) {
  const std::string answer = insidePidNamespace([]() -> std::string {
    if (::getppid() != 0) return "the parent is not outside";
    ::prctl(PR_SET_NAME, "xcodebuild");
    return std::string(isProcessNameInHierarchy("xcodebuild") ? "1" : "0") +
           (isProcessNameInHierarchy("Xcode") ? "1" : "0");
  });
  if (answer == "not allowed") GTEST_SKIP() << "this machine allows no pid namespace";
  EXPECT_EQ(answer, "10");
}

}  // namespace

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "foundation/ChildProcess.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::ChildProcess;
using foundation::Termination;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

struct Outcome {
  Termination termination;
  std::string output;
  std::string error;
};

Outcome run(const ChildProcess::Launch& launch) {
  auto child = ChildProcess::launch(launch);
  if (!child) throw std::runtime_error(child.error().localizedDescription());
  Outcome outcome;
  outcome.termination = child->waitUntilExit();
  outcome.error = child->readStandardErrorToEnd().text();
  outcome.output = child->readStandardOutputToEnd().text();
  return outcome;
}

ChildProcess::Launch shell(const std::string& script) {
  return {.executable = "/bin/sh", .arguments = {"-c", script}};
}

/// True once `condition` holds; false when it does not within ten seconds.
bool eventually(const std::function<bool()>& condition) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

bool isAlive(pid_t process) {
  const auto record = foundation::processRecord(process);
  return record && record->processIdentifier != 0;
}

TEST(ChildProcess, TellsExitFromSignal) {
  const struct {
    const char* script;
    Termination::Reason reason;
    int status;
  } cases[] = {
      {"exit 0", Termination::Reason::exited, 0},
      {"exit 3", Termination::Reason::exited, 3},
      {"exit 143", Termination::Reason::exited, 143},
      {"kill -KILL $$", Termination::Reason::signalled, SIGKILL},
  };
  for (const auto& c : cases) {
    const Outcome outcome = run(shell(c.script));
    EXPECT_EQ(outcome.termination.reason, c.reason) << c.script;
    EXPECT_EQ(outcome.termination.status, c.status) << c.script;
  }
}

TEST(ChildProcess, WhatCannotStartIsAnErrorAndLeavesNothingBehind) {
  const test::TemporaryFolder folder;
  const auto script = [&](const char* name, const char* content, mode_t mode) {
    const auto path = folder.write(name, content);
    ::chmod(path.c_str(), mode);
    return path;
  };
  const std::string nul("a\0b", 3);
  const struct {
    ChildProcess::Launch launch;
    int code;
    std::string complaint;
  } cases[] = {
      {{.executable = folder / "missing"}, ENOENT, (folder / "missing").string()},
      {{.executable = "ls"}, ENOENT, "cannot launch ls"},
      {{.executable = ""}, ENOENT, "cannot launch"},
      {{.executable = script("plain", "#!/bin/sh\n", 0644)}, EACCES, "plain"},
      {{.executable = script("headless", "echo hello\n", 0755)}, ENOEXEC, "headless"},
      {{.executable = folder.path()}, EACCES, folder.path().string()},
      {{.executable = "/bin/true", .workingDirectory = folder / "gone"},
       ENOENT,
       "working directory " + (folder / "gone").string()},
      {{.executable = "/bin/true", .arguments = {nul}}, EINVAL, "/bin/true"},
  };
  for (const auto& c : cases) {
    const auto child = ChildProcess::launch(c.launch);
    ASSERT_FALSE(child) << c.complaint;
    EXPECT_EQ(child.error().code, c.code) << c.complaint;
    EXPECT_THAT(child.error().localizedDescription(), HasSubstr(c.complaint));
  }
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, LeadsASessionOfItsOwnWithDefaultSignals) {
  struct sigaction before {};
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &before);
  sigset_t block;
  sigset_t mask;
  sigemptyset(&block);
  sigaddset(&block, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &block, &mask);
  const std::string status =
      run({.executable = "/bin/cat", .arguments = {"/proc/self/status"}}).output;
  const std::string stat = run({.executable = "/bin/cat", .arguments = {"/proc/self/stat"}}).output;
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  ::sigaction(SIGPIPE, &before, nullptr);
  EXPECT_THAT(status, HasSubstr("SigBlk:\t0000000000000000\n"));
  // Above the 31 classic signals the C library keeps two for itself, which it may ignore.
  const auto ignored = std::stoull(status.substr(status.find("SigIgn:\t") + 8), nullptr, 16);
  EXPECT_EQ(ignored & 0x7fffffff, 0U);
  std::istringstream fields(stat);
  std::string process, name, state, parent, group, session;
  fields >> process >> name >> state >> parent >> group >> session;
  EXPECT_EQ(group, process);
  EXPECT_EQ(session, process);
}

TEST(ChildProcess, InheritsOnlyItsThreeStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);  // not close-on-exec
  const int far = ::fcntl(leaked, F_DUPFD, 200);
  const Outcome outcome = run({.executable = "/bin/ls", .arguments = {"/proc/self/fd"}});
  ::close(leaked);
  ::close(far);
  EXPECT_EQ(outcome.output, "0\n1\n2\n3\n");  // 3 is the listing's own
}

TEST(ChildProcess, WorksWhereTheStandardStreamsAreClosed) {
  EXPECT_EQ(test::inChildProcess([] {
              for (const int stream : {0, 1, 2}) ::close(stream);
              const Outcome outcome = run(shell("echo out; echo err >&2"));
              return outcome.output + outcome.error;
            }),
            "out\nerr\n");
}

TEST(ChildProcess, StandardInputStaysOpenAndSilent) {
  const Outcome outcome = run({.executable = "/usr/bin/timeout", .arguments = {"0.3", "cat"}});
  EXPECT_EQ(outcome.termination.status, 124);
}

TEST(ChildProcess, APipeTakesAsMuchAsTheSystemAllows) {
  int limit = 0;
  std::ifstream("/proc/sys/fs/pipe-max-size") >> limit;
  ASSERT_GT(limit, 0);
  const std::string size = std::to_string(std::min(limit, 1 << 20));
  EXPECT_EQ(
      run({.executable = "/usr/bin/head", .arguments = {"-c", size, "/dev/zero"}}).output.size(),
      std::stoul(size));
}

TEST(ChildProcess, DoesNotWaitLongForAGrandchildThatHoldsThePipes) {
  const auto start = Clock::now();
  const Outcome outcome = run(shell("sleep 30 & echo $!; exit 5"));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(15));
  EXPECT_EQ(outcome.termination.status, 5);
  const pid_t grandchild = std::stoi(outcome.output);
  EXPECT_TRUE(isAlive(grandchild));
  ::kill(grandchild, SIGKILL);
}

TEST(ChildProcess, AllRunningChildrenCanBeEndedWithTheirOwn) {
  const test::TemporaryFolder folder;
  const std::string file = (folder / "pid").string();
  auto family = ChildProcess::launch(
      shell("sleep 60 & echo $! > " + file + ".new; mv " + file + ".new " + file + "; wait"));
  auto single = ChildProcess::launch({.executable = "/bin/sleep", .arguments = {"60"}});
  auto ended = ChildProcess::launch({.executable = "/bin/true"});
  ASSERT_TRUE(family && single && ended);
  ended->waitUntilExit();
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(file); }));
  const pid_t grandchild = std::stoi(test::contentsOf(file));
  foundation::terminateRunningChildren(SIGTERM);
  EXPECT_EQ(family->waitUntilExit().status, SIGTERM);
  EXPECT_EQ(single->waitUntilExit().status, SIGTERM);
  EXPECT_EQ(ended->waitUntilExit().status, 0);
  EXPECT_TRUE(eventually([&] {
    const auto state = std::ifstream("/proc/" + std::to_string(grandchild) + "/stat");
    std::ostringstream text;
    text << state.rdbuf();
    return text.str().empty() || text.str().find(") Z ") != std::string::npos;
  }));
}

TEST(ChildProcess, AChildWithoutOwnerIsReapedLater) {
  pid_t orphan = 0;
  {
    auto child = ChildProcess::launch(shell("read line < /dev/zero; exit 0"));
    ASSERT_TRUE(child);
    orphan = child->processIdentifier();
  }
  ::kill(orphan, SIGKILL);
  EXPECT_TRUE(eventually([&] {
    run({.executable = "/bin/true"});
    return !isAlive(orphan);
  }));
}

TEST(ChildProcess, StatusesSurviveALauncherThatIgnoredChildren) {
  EXPECT_EQ(test::inChildProcess([] {
              std::signal(SIGCHLD, SIG_IGN);
              return std::to_string(run(shell("exit 7")).termination.status);
            }),
            "7");
}

TEST(ChildProcess, ManyAtOnceDoNotHoldEachOthersPipes) {
  const auto start = Clock::now();
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread, &wrong] {
      for (int i = 0; i < 10; ++i) {
        const std::string word = std::to_string(thread * 100 + i);
        if (run({.executable = "/bin/echo", .arguments = {word}}).output != word + "\n") ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(60));
}

}  // namespace

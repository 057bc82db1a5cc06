#include <sstream>

#include "foundation/process/ChildProcess.h"
#include "tests/support/Test.h"

namespace {

using foundation::ChildProcess;

/// What a child writes to its output and to its error output, and how it ends: "exit 0".
std::string run(const ChildProcess::Launch& launch) {
  auto child = ChildProcess::launch(launch);
  if (!child) throw std::runtime_error(problemOf(child));
  const auto termination = child->waitUntilExit();
  const std::string error(child->readStandardErrorToEnd().text());
  const bool exited = termination.reason == foundation::Termination::Reason::exited;
  return std::string(child->readStandardOutputToEnd().text()) + error +
         (exited ? "exit " : "signal ") + std::to_string(termination.status);
}

ChildProcess::Launch shell(const std::string& script) {
  return {.executable = "/bin/sh", .arguments = {"-c", script}};
}

/// True once the process has ended, even if not reaped.
bool ends(pid_t process) {
  return eventually([process] {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string state(std::istreambuf_iterator<char>(file), {});
    return state.empty() || state.find(") Z ") != std::string::npos;
  });
}

TEST(ChildProcess, TellsExitFromSignal) {
  EXPECT_EQ(run(shell("echo out; echo err >&2; exit 143")), "out\nerr\nexit 143");
  EXPECT_EQ(run(shell("kill -KILL $$")), "signal 9");
}

TEST(ChildProcess, WhatCannotStartIsAnErrorAndLeavesNothingBehind) {
  const TemporaryFolder folder;
  writeProgram(folder / "headless", "echo hello\n");
  const struct {
    ChildProcess::Launch launch;
    int code;
    std::string complaint;
  } cases[] = {
      {{.executable = folder / "missing"}, ENOENT, folder / "missing"},
      {{.executable = "ls"}, ENOENT, "cannot launch ls"},
      {{.executable = folder / "headless"}, ENOEXEC, "headless"},
      {{.executable = "/bin/true", .workingDirectory = folder / "gone"},
       ENOENT,
       "working directory " + (folder / "gone").string()},
      {{.executable = "/bin/true", .arguments = {std::string("a\0b", 3)}}, EINVAL, "/bin/true"},
  };
  for (const auto& c : cases) {
    const auto child = ChildProcess::launch(c.launch);
    ASSERT_THAT(problemOf(child), HasSubstr(c.complaint));
    EXPECT_EQ(child.error().code, c.code) << c.complaint;
  }
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, LeadsASessionOfItsOwnWithDefaultSignals) {
  const std::string seen = inChildProcess([] {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t block;
    sigemptyset(&block);
    sigaddset(&block, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &block, nullptr);
    // Not a shell, which blocks signals while it starts a program itself.
    return run({.executable = "/bin/cat", .arguments = {"/proc/self/stat", "/proc/self/status"}});
  });
  EXPECT_THAT(seen, HasSubstr("SigBlk:\t0000000000000000\n"));
  // The C library reserves two signals above the 31 classic ones, and may ignore them.
  const auto ignored = std::stoull(seen.substr(seen.find("SigIgn:\t") + 8), nullptr, 16);
  EXPECT_EQ(ignored & 0x7fffffff, 0U);
  std::istringstream fields(seen);
  std::string process, name, state, parent, group, session;
  fields >> process >> name >> state >> parent >> group >> session;
  EXPECT_EQ(group, process);
  EXPECT_EQ(session, process);
}

TEST(ChildProcess, InheritsOnlyItsThreeStreams) {
  const foundation::FileDescriptor leaked(::open("/dev/null", O_RDONLY));  // not close-on-exec
  const foundation::FileDescriptor far(::fcntl(leaked.get(), F_DUPFD, 200));
  EXPECT_EQ(run({.executable = "/bin/ls", .arguments = {"/proc/self/fd"}}),
            "0\n1\n2\n3\nexit 0");  // 3 belongs to the listing
}

TEST(ChildProcess, WorksWhateverItsOwnLauncherDid) {
  const auto work = [] {
    std::signal(SIGCHLD, SIG_IGN);
    for (const int stream : {0, 1, 2}) ::close(stream);
    return run(shell("echo out; echo err >&2; exit 7"));
  };
  EXPECT_EQ(inChildProcess(work), "out\nerr\nexit 7");
}

TEST(ChildProcess, StandardInputStaysOpenAndSilent) {
  EXPECT_EQ(run({.executable = "/usr/bin/timeout", .arguments = {"0.3", "cat"}}), "exit 124");
}

TEST(ChildProcess, APipeTakesAsMuchAsTheSystemAllows) {
  const auto limit = std::stoul(contentsOf("/proc/sys/fs/pipe-max-size"));
  const std::string size = std::to_string(std::min(limit, 1ul << 20));
  EXPECT_EQ(run({.executable = "/usr/bin/head", .arguments = {"-c", size, "/dev/zero"}}),
            std::string(std::stoul(size), '\0') + "exit 0");
}

TEST(ChildProcess, DoesNotWaitLongForAGrandchildThatHoldsThePipes) {
  const std::string outcome = run(shell("sleep 600 & echo $!; exit 5"));
  EXPECT_THAT(outcome, EndsWith("exit 5"));
  EXPECT_EQ(::kill(std::stoi(outcome), SIGKILL), 0) << "it has gone on";
}

TEST(ChildProcess, AllRunningChildrenCanBeEndedWithTheirOwn) {
  const TemporaryFolder folder;
  const std::string pipe = folder / "pid";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  auto family = ChildProcess::launch(shell("sleep 60 & echo $! > " + pipe + "; wait"));
  auto single = ChildProcess::launch({.executable = "/bin/sleep", .arguments = {"60"}});
  auto ended = ChildProcess::launch({.executable = "/bin/true"});
  ended->waitUntilExit();
  pid_t grandchild = 0;
  ASSERT_TRUE(std::ifstream(pipe) >> grandchild);
  foundation::terminateRunningChildren(SIGTERM);
  EXPECT_EQ(family->waitUntilExit().status, SIGTERM);
  EXPECT_EQ(single->waitUntilExit().status, SIGTERM);
  EXPECT_EQ(ended->waitUntilExit().status, 0);
  EXPECT_TRUE(ends(grandchild));
}

TEST(ChildProcess, AChildWithoutOwnerIsReapedLater) {
  const pid_t orphan =
      ChildProcess::launch({.executable = "/bin/sleep", .arguments = {"60"}})->processIdentifier();
  ::kill(orphan, SIGKILL);
  ASSERT_TRUE(ends(orphan));
  run({.executable = "/bin/true"});
  EXPECT_FALSE(fs::exists("/proc/" + std::to_string(orphan)));
}

TEST(ChildProcess, ManyAtOnceDoNotHoldEachOthersPipes) {
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([word = std::to_string(thread)] {
      for (int i = 0; i < 10; ++i) EXPECT_EQ(run(shell("echo " + word)), word + "\nexit 0");
    });
  }
}

}  // namespace

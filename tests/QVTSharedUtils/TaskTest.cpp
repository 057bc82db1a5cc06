#include <chrono>
#include <csignal>
#include <thread>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Data;
using foundation::Environment;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

const std::string kShell = "/bin/sh";

std::vector<std::string> script(const std::string& text) { return {"-c", text}; }

struct Outcome {
  int calls = 0;
  std::string error;
  std::string output;
  std::int32_t status = -1;
  std::thread::id thread;

  QVTTask::Completion completion() {
    return [this](const Data& errorData, const Data& outputData, std::int32_t code) {
      ++calls;
      error = errorData.text();
      output = outputData.text();
      status = code;
      thread = std::this_thread::get_id();
    };
  }
};

TEST(Task, HandsOverBothOutputsAndTheStatusBeforeItReturns) {
  Outcome outcome;
  QVTTask::launchWithPathWorkingDirectoryArgumentsCompletion(
      kShell, std::nullopt, script("echo abc; echo problem >&2; exit 3"), outcome.completion());
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.output, "abc\n");
  EXPECT_EQ(outcome.error, "problem\n");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.thread, std::this_thread::get_id());
}

TEST(Task, ASignalsNumberIsTheStatus) {
  Outcome outcome;
  QVTTask::launchWithPathWorkingDirectoryArgumentsCompletion(
      kShell, std::nullopt, script("kill -KILL $$"), outcome.completion());
  EXPECT_EQ(outcome.status, SIGKILL);
  EXPECT_FALSE(QVTTask::runTaskWithLaunchPathArguments(kShell, script("kill -KILL $$")));
}

TEST(Task, TextsAreUntrimmedAndMustBeUTF8) {
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments(kShell, script("echo abc; exit 1")), "abc\n");
  EXPECT_EQ(QVTTask::stderrWithLaunchPathArguments(kShell, script("echo abc >&2")), "abc\n");
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments(kShell, script("printf '\\377'")), std::nullopt);
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments("/bin/true", std::nullopt), "");
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments("/bin/echo", std::nullopt), "\n");
}

TEST(Task, RunsInAFolderAndAnEnvironment) {
  const test::TemporaryFolder folder;
  const test::ScopedEnvironment inherited("SENDOFF_TEST", "inherited");
  const std::string show = "pwd; echo ${SENDOFF_TEST-none} ${ONLY-none}";
  const auto run = [&](const std::optional<std::string>& directory,
                       const std::optional<Environment>& environment) {
    Outcome outcome;
    QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(
        kShell, directory, script(show), environment, outcome.completion());
    return outcome.output;
  };
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(run(std::nullopt, std::nullopt), here + "\ninherited none\n");
  EXPECT_EQ(run(folder.path(), Environment{{"ONLY", "me"}}),
            folder.path().string() + "\nnone me\n");
  EXPECT_EQ(run(std::nullopt, Environment{}), here + "\nnone none\n");
  EXPECT_TRUE(QVTTask::runTaskWithLaunchPathCurrentDirectoryPathArguments(
      kShell, folder.path(), script("test \"$PWD\" = " + folder.path().string())));
}

TEST(Task, AProgramThatOverstaysIsTerminated) {
  Outcome outcome;
  const auto start = Clock::now();
  QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
      kShell, std::nullopt, script("echo begun; exec sleep 60"), std::nullopt, 0.3,
      outcome.completion());
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(300));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(outcome.output, "begun\n");
  EXPECT_EQ(outcome.status, SIGTERM);
}

TEST(Task, AProgramThatEndsInTimeIsLeftAlone) {
  Outcome outcome;
  for (const double timeout : {-1.0, 0.0, 60.0, 1e300}) {
    QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
        kShell, std::nullopt, script("exit 4"), std::nullopt, timeout, outcome.completion());
    EXPECT_EQ(outcome.status, 4) << timeout;
  }
}

TEST(Task, WhatCannotBeLaunchedIsAnExceptionThatNamesIt) {
  Outcome outcome;
  for (const auto& [path, directory, complaint] :
       {std::tuple<const char*, std::optional<std::string>, const char*>{
            "/nowhere/tool", std::nullopt, "/nowhere/tool"},
        {"", std::nullopt, "cannot launch"},
        {"/bin/sh", "/nowhere/folder", "/nowhere/folder"}}) {
    try {
      QVTTask::launchWithPathWorkingDirectoryArgumentsCompletion(path, directory, std::nullopt,
                                                                 outcome.completion());
      ADD_FAILURE() << complaint;
    } catch (const foundation::Exception& exception) {
      EXPECT_THAT(exception.what(), HasSubstr(complaint));
    }
  }
  EXPECT_EQ(outcome.calls, 0);
}

void runWithFewDescriptors() {
  struct rlimit usual = {};
  ::getrlimit(RLIMIT_NOFILE, &usual);
  const struct rlimit few = {.rlim_cur = 4, .rlim_max = usual.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  try {
    QVTTask::runTaskWithLaunchPathArguments("/bin/true", std::nullopt);
  } catch (const foundation::Exception& exception) {
    ::setrlimit(RLIMIT_NOFILE, &usual);  // a sanitizer looks at the exception through a pipe
    std::fputs(exception.what(), stderr);
    std::_Exit(7);
  }
}

TEST(TaskDeathTest, WithoutPipesTheAssertionIsToldAndTheRunEnds) {
  EXPECT_EXIT(runWithFewDescriptors(), testing::ExitedWithCode(7),
              "stdoutPipe && stdinPipe && stderrPipe\\).*\ncannot make pipes");
}

TEST(Task, WithoutInputAProgramMayAskAndSayAsMuchAsItLikes) {
  constexpr std::size_t kept = 1 << 20;
  struct Case {
    const char* name;
    const char* script;
    std::size_t output;
    std::size_t error;
    std::int32_t status;
  };
  for (const Case& c : {
           Case{"asks", "read answer; exit 3", 0, 0, 3},
           Case{"a little", "echo abc; echo d >&2", 4, 2, 0},
           Case{"much to both", "yes | head -c 9000000; yes | head -c 9000000 >&2; exit 2", kept,
                kept, 2},
           Case{"closes its streams first", "echo abc; exec >&- 2>&-; sleep 0.2; exit 4", 4, 0, 4},
           Case{"a grandchild keeps them", "sleep 600 & echo abc", 4, 0, 0},
       }) {
    SCOPED_TRACE(c.name);
    Outcome outcome;
    QVTTask::launchWithoutInput(kShell, script(c.script), outcome.completion());
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.output.size(), c.output);
    EXPECT_EQ(outcome.error.size(), c.error);
  }
}

}  // namespace

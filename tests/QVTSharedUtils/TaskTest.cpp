#include "QVTSharedUtils/QVTTask.h"
#include "tests/support/Test.h"

namespace {

const std::string kShell = "/bin/sh";

std::vector<std::string> script(const std::string& text) { return {"-c", text}; }

/// What a completion was given: standard output, standard error and the status.
using Outcome = std::tuple<std::string, std::string, std::int32_t>;

Outcome outcomeOf(const std::function<void(const QVTTask::Completion&)>& launch) {
  int calls = 0;
  Outcome outcome;
  const auto caller = std::this_thread::get_id();
  launch([&](const Data& error, const Data& output, std::int32_t status) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    ++calls;
    outcome = {std::string(output.text()), std::string(error.text()), status};
  });
  EXPECT_EQ(calls, 1) << "it is called before the launch returns";
  return outcome;
}

Outcome ran(const std::string& text, double timeout = 0) {
  return outcomeOf([&](const QVTTask::Completion& completion) {
    QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
        kShell, {}, script(text), {}, timeout, completion);
  });
}

TEST(Task, HandsOverBothOutputsUntrimmedAndTheStatus) {
  EXPECT_EQ(ran("echo abc; echo problem >&2; exit 3"), Outcome("abc\n", "problem\n", 3));
  const auto log = logOf([] { EXPECT_EQ(ran("kill -KILL $$"), Outcome("", "", SIGKILL)); });
  EXPECT_THAT(log, HasSubstr("/bin/sh was ended by signal 9"));
  EXPECT_FALSE(QVTTask::runTaskWithLaunchPathArguments(kShell, script("kill -KILL $$")));
  EXPECT_TRUE(QVTTask::runTaskWithLaunchPathCurrentDirectoryPathArguments(
      kShell, "/usr", script("test \"$PWD\" = /usr")));
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments(kShell, script("printf '\\377'")), std::nullopt);
  EXPECT_EQ(QVTTask::stdoutWithLaunchPathArguments("/bin/echo", std::nullopt), "\n");
  EXPECT_EQ(QVTTask::stderrWithLaunchPathArguments(kShell, script("echo abc >&2; exit 1")),
            "abc\n");
}

TEST(Task, OnlyAProgramThatOverstaysIsTerminated) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ran("echo begun; exec sleep 60", 0.3), Outcome("begun\n", "", SIGTERM));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
  for (const double timeout : {-1.0, 60.0, 1e300}) {
    EXPECT_EQ(ran("exit 4", timeout), Outcome("", "", 4)) << timeout;
  }
}

TEST(Task, WithoutInputAProgramMayAskAndSayAsMuchAsItLikes) {
  using Sizes = std::tuple<std::size_t, std::size_t, std::int32_t>;
  const std::pair<const char*, Sizes> cases[] = {
      {"read answer; exit 3", {0, 0, 3}},
      {"yes | head -c 9000000; yes | head -c 9000000 >&2; exit 2", {1 << 20, 1 << 20, 2}},
      {"echo abc; exec >&- 2>&-; exit 4", {4, 0, 4}},
      {"sleep 600 & echo abc", {4, 0, 0}},  // a grandchild keeps the streams
  };
  for (const auto& [text, expected] : cases) {
    const auto [output, error, status] =
        outcomeOf([&, words = script(text)](const auto& completion) {
          QVTTask::launchWithoutInput(kShell, words, completion);
        });
    EXPECT_EQ(Sizes(output.size(), error.size(), status), expected) << text;
  }
}

}  // namespace

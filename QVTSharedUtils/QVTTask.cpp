#include "QVTSharedUtils/QVTTask.h"

#include <chrono>
#include <thread>

#include "foundation/base/Assertion.h"
#include "foundation/base/Error.h"
#include "foundation/base/Text.h"
#include "foundation/process/ChildProcess.h"
#include "foundation/process/SystemLog.h"

namespace {

using foundation::ChildProcess;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::duration<float> kPollInterval{0.1F};

ChildProcess launched(const ChildProcess::Launch& launch) {
  auto pipes = foundation::StandardPipes::open();
  if (!pipes) {
    // No descriptors left is not a programming fault: throw, so that callers can clean up.
    const foundation::AssertionSite site{
        .function =
            "+[QVTTask launchWithPath:workingDirectory:arguments:environment:timeout:"
            "completion:]",
        .source = "QVTSharedUtils/QVTSharedUtils/QVTTask"};
    foundation::reportFailedAssertion("stdoutPipe && stdinPipe && stderrPipe", site);
    throw foundation::Exception(pipes.error().localizedDescription());
  }
  auto child = ChildProcess::launch(launch, *std::move(pipes));
  if (!child) throw foundation::Exception(child.error().localizedDescription());
  return *std::move(child);
}

/// After the timeout, requests to terminate follow each other without a pause.
void waitOrTerminate(ChildProcess& child, Seconds timeout) {
  const std::chrono::time_point<Clock, Seconds> deadline = Clock::now() + timeout;
  while (child.isRunning()) {
    if (Clock::now() > deadline) {
      child.terminate();
    } else {
      std::this_thread::sleep_for(kPollInterval);
    }
  }
}

/// What a program left when it ended; the arguments of a completion.
struct Outcome {
  foundation::Data errorData;
  foundation::Data outputData;
  std::int32_t status = 0;
};

Outcome outcomeOf(ChildProcess child, const std::string& launchPath) {
  const foundation::Termination termination = child.waitUntilExit();
  if (termination.reason == foundation::Termination::Reason::signalled) {
    foundation::systemLog("%@ was ended by signal %d", launchPath, termination.status);
  }
  return {child.readStandardErrorToEnd(), child.readStandardOutputToEnd(), termination.status};
}

/// In the caller's environment, without a time limit.
Outcome run(const std::string& launchPath, const QVTTask::Arguments& arguments,
            const std::optional<std::string>& workingDirectory = std::nullopt) {
  return outcomeOf(launched({.executable = launchPath,
                             .arguments = arguments.value_or(std::vector<std::string>()),
                             .workingDirectory = workingDirectory}),
                   launchPath);
}

void report(const Outcome& outcome, const QVTTask::Completion& completion) {
  if (completion) completion(outcome.errorData, outcome.outputData, outcome.status);
}

}  // namespace

void QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
    const std::string& launchPath, const std::optional<std::string>& workingDirectory,
    const Arguments& arguments, const std::optional<foundation::Environment>& environment,
    double timeout, const Completion& completion) {
  ChildProcess child = launched({.executable = launchPath,
                                 .arguments = arguments.value_or(std::vector<std::string>()),
                                 .workingDirectory = workingDirectory,
                                 .environment = environment});
  if (timeout > 0) waitOrTerminate(child, Seconds(timeout));
  report(outcomeOf(std::move(child), launchPath), completion);
}

void QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(
    const std::string& launchPath, const std::optional<std::string>& workingDirectory,
    const Arguments& arguments, const std::optional<foundation::Environment>& environment,
    const Completion& completion) {
  launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
      launchPath, workingDirectory, arguments, environment, 0, completion);
}

void QVTTask::launchWithPathWorkingDirectoryArgumentsCompletion(
    const std::string& launchPath, const std::optional<std::string>& workingDirectory,
    const Arguments& arguments, const Completion& completion) {
  launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(launchPath, workingDirectory,
                                                               arguments, std::nullopt, completion);
}

void QVTTask::launchWithoutInput(const std::string& launchPath, const Arguments& arguments,
                                 const Completion& completion) {
  ChildProcess child = launched(
      {.executable = launchPath, .arguments = arguments.value_or(std::vector<std::string>())});
  child.closeStandardInput();
  child.takeOutputWhileRunning();
  report(outcomeOf(std::move(child), launchPath), completion);
}

foundation::Dictionary QVTTask::descriptionOfRun(const std::string& launchPath,
                                                 const std::vector<std::string>& arguments,
                                                 const foundation::Data& errorData,
                                                 const foundation::Data& outputData,
                                                 std::int32_t status) {
  return {{"command", launchPath},
          {"arguments", foundation::Array(arguments.begin(), arguments.end())},
          {"status", status},
          {"stderr", foundation::lossyUTF8(errorData.bytes())},
          {"stdout", foundation::lossyUTF8(outputData.bytes())}};
}

std::optional<std::string> QVTTask::stdoutWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments) {
  return foundation::stringFromUTF8(run(launchPath, arguments).outputData.bytes());
}

std::optional<std::string> QVTTask::stderrWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments) {
  return foundation::stringFromUTF8(run(launchPath, arguments).errorData.bytes());
}

bool QVTTask::runTaskWithLaunchPathCurrentDirectoryPathArguments(
    const std::string& launchPath, const std::optional<std::string>& currentDirectoryPath,
    const Arguments& arguments) {
  return run(launchPath, arguments, currentDirectoryPath).status == 0;
}

bool QVTTask::runTaskWithLaunchPathArguments(const std::string& launchPath,
                                             const Arguments& arguments) {
  return runTaskWithLaunchPathCurrentDirectoryPathArguments(launchPath, std::nullopt, arguments);
}

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Value.h"
#include "foundation/process/ProcessInfo.h"

/// Runs external programs, and takes argument strings apart.
///
/// Every launch blocks the calling thread until the program has ended. Its output is read only
/// then, so a program that writes more than a pipe holds never ends by itself; its standard input
/// stays open and empty. A program that cannot be started (missing, not executable, bad working
/// directory) raises `foundation::Exception`. Safe from several threads at once.
class QVTTask {
 public:
  QVTTask() = delete;

  using Arguments = std::optional<std::vector<std::string>>;
  /// Called on the launching thread with everything the program wrote to standard error, then to
  /// standard output, and its exit status, or the number of the signal that ended it,
  /// which a line in the system log tells apart.
  using Completion = std::function<void(const foundation::Data& errorData,
                                        const foundation::Data& outputData, std::int32_t status)>;

  /// `launchPath` is used as it stands. Absent: working directory and environment are the caller's,
  /// there are no arguments. An environment that is given is the program's whole environment.
  ///
  /// With a `timeout` (seconds) above 0 the program is asked to terminate once that time is over,
  /// again and again until it has; the completion is then called like after any other run.
  static void launchWithPathWorkingDirectoryArgumentsEnvironmentTimeoutCompletion(
      const std::string& launchPath, const std::optional<std::string>& workingDirectory,
      const Arguments& arguments, const std::optional<foundation::Environment>& environment,
      double timeout, const Completion& completion);
  /// Without a time limit.
  static void launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(
      const std::string& launchPath, const std::optional<std::string>& workingDirectory,
      const Arguments& arguments, const std::optional<foundation::Environment>& environment,
      const Completion& completion);
  /// Without a time limit, in the caller's environment.
  static void launchWithPathWorkingDirectoryArgumentsCompletion(
      const std::string& launchPath, const std::optional<std::string>& workingDirectory,
      const Arguments& arguments, const Completion& completion);

  /// The same for a program that works on what strangers made (`unzip`). Its standard input is at
  /// its end, since it may ask there (on a full disk) and would wait for an answer for ever. Its
  /// output is taken while it runs, the first megabyte of each stream: a line for each of 40,000
  /// damaged files is more than a pipe holds.
  static void launchWithoutInput(const std::string& launchPath, const Arguments& arguments,
                                 const Completion& completion);

  /// What the program wrote, untrimmed, whatever its status; absent when that is not UTF-8.
  static std::optional<std::string> stdoutWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments);
  static std::optional<std::string> stderrWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments);

  /// True exactly when the program exited with status 0; its output is dropped.
  static bool runTaskWithLaunchPathCurrentDirectoryPathArguments(
      const std::string& launchPath, const std::optional<std::string>& currentDirectoryPath,
      const Arguments& arguments);
  static bool runTaskWithLaunchPathArguments(const std::string& launchPath,
                                             const Arguments& arguments);

  /// Splits text at white space as a shell does, honouring both quotes, and the backslash also
  /// inside quotes. An empty pair of quotes makes no argument. Absent when the text ends inside a
  /// quote or right behind a lone backslash.
  static std::optional<std::vector<std::string>> parsedArgumentsFromString(std::string_view string);

  /// The values that follow the valid options, one per occurrence: the next element, or an empty
  /// text where there is none or it begins with "-"; with `allowingTrailingSpace`, also the rest of
  /// an element that begins with an option (the first that fits). Absent when a provided element is
  /// not a string. An empty element behind an option raises `foundation::Exception`.
  static std::optional<std::vector<std::string>>
  argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
      const foundation::Array& provided, const std::vector<std::string>& validArguments,
      bool allowingTrailingSpace);
};

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

/// Runs external programs and splits argument strings. Thread-safe.
///
/// Every launch blocks until the program has ended. Its output is read only then, so a program that
/// writes more than a pipe holds never ends by itself; its standard input stays open and empty.
/// Throws `foundation::Exception` when the program cannot be started (missing, not executable, bad
/// working directory).
class QVTTask {
 public:
  QVTTask() = delete;

  using Arguments = std::optional<std::vector<std::string>>;
  /// Called on the launching thread. `status` is the exit status or the number of the fatal signal;
  /// only a line in the system log distinguishes the two.
  using Completion = std::function<void(const foundation::Data& errorData,
                                        const foundation::Data& outputData, std::int32_t status)>;

  /// `launchPath` is used as is. An absent working directory or environment is the caller's; a
  /// given environment replaces the caller's.
  ///
  /// After `timeout` seconds, unless that is 0, the program is asked to terminate, repeatedly until
  /// it does; the completion is called as usual.
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

  /// For programs that process untrusted input (`unzip`). Standard input is at its end, since the
  /// program might ask a question (on a full disk) and wait forever. Output is read while it runs,
  /// the first megabyte of each stream: a line for each of 40,000 damaged files is more than a pipe
  /// holds.
  static void launchWithoutInput(const std::string& launchPath, const Arguments& arguments,
                                 const Completion& completion);

  /// A run as an error's user info: "command", "arguments", "status", "stderr" and "stdout", the
  /// last two as text.
  static foundation::Dictionary descriptionOfRun(const std::string& launchPath,
                                                 const std::vector<std::string>& arguments,
                                                 const foundation::Data& errorData,
                                                 const foundation::Data& outputData,
                                                 std::int32_t status);

  /// The output, untrimmed, whatever the status; absent when it is not UTF-8.
  static std::optional<std::string> stdoutWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments);
  static std::optional<std::string> stderrWithLaunchPathArguments(const std::string& launchPath,
                                                                  const Arguments& arguments);

  /// True if the program exited with status 0; its output is dropped.
  static bool runTaskWithLaunchPathCurrentDirectoryPathArguments(
      const std::string& launchPath, const std::optional<std::string>& currentDirectoryPath,
      const Arguments& arguments);
  static bool runTaskWithLaunchPathArguments(const std::string& launchPath,
                                             const Arguments& arguments);

  /// Splits at white space like a shell, except that a backslash escapes inside single quotes, too,
  /// and that empty quotes yield no argument. Absent when a quote is unterminated or the text ends
  /// with an unescaped backslash.
  static std::optional<std::vector<std::string>> parsedArgumentsFromString(std::string_view string);

  /// The values of the valid options, one per occurrence: the next element, or "" when there is
  /// none or it begins with "-". With `allowingTrailingSpace`, also the rest of an element that
  /// starts with an option (the first match). Absent when an element is not a string. Throws
  /// `foundation::Exception` for an empty element after an option.
  static std::optional<std::vector<std::string>>
  argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
      const foundation::Array& provided, const std::vector<std::string>& validArguments,
      bool allowingTrailingSpace);
};

#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tests/support/TemporaryFolder.h"

namespace test {

/// How a program is started. It gets a session of its own and an empty standard input.
struct RunOptions {
  std::vector<std::string> command;
  /// Its whole environment.
  std::map<std::string, std::string> environment = {};
  /// Called in the child just before the program starts: closes descriptors, changes the user.
  std::function<void()> prepare = {};
  std::chrono::seconds limit = std::chrono::seconds(120);
};

struct RunResult {
  /// The exit status; absent when a signal ended the program.
  std::optional<int> status;
  int signal = 0;
  std::string output;
  std::string errors;

  /// The console lines without their time stamp and tag; a line without them stays as it is.
  [[nodiscard]] std::vector<std::string> messages() const;
};

/// For `RunOptions::prepare`: a user without rights, for whom permissions count. Does nothing in a
/// process that is not root's.
void becomeUnprivileged();

/// A program on its way; killed at the end of the scope, should it still run then.
class RunningProgram {
 public:
  explicit RunningProgram(const RunOptions& options);
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }
  /// What it has written so far.
  [[nodiscard]] std::string output() const { return contentsOf(streams_ / "output"); }
  /// Throws when the end does not come within the options' limit.
  RunResult wait();

 private:
  std::chrono::seconds limit_;
  TemporaryFolder streams_;
  pid_t process_ = -1;
  bool hasEnded_ = false;
};

/// Runs the program to its end; throws when that does not come within the limit.
RunResult runProgram(const RunOptions& options);

/// A home, a temporary folder and a place for files, for runs of the tool.
class Workplace {
 public:
  Workplace();

  [[nodiscard]] std::filesystem::path files() const { return folder_ / "files"; }
  [[nodiscard]] std::filesystem::path home() const { return folder_ / "home"; }
  /// What the tool is given as its temporary folder.
  [[nodiscard]] std::filesystem::path temporary() const { return folder_ / "temporary"; }
  /// Everything in it, as paths relative to it, folders first and sorted.
  [[nodiscard]] std::vector<std::string> leftovers() const;

  /// The environment of runs; tests change it.
  std::map<std::string, std::string>& environment() { return environment_; }

  /// How the tool is started with a valid key and secret in front of the arguments.
  [[nodiscard]] RunOptions options(const std::vector<std::string>& arguments) const;
  /// Runs the tool with a valid key and secret in front of the arguments.
  [[nodiscard]] RunResult run(const std::vector<std::string>& arguments,
                              const std::function<void()>& prepare = {}) const;
  /// Runs it with these arguments alone.
  [[nodiscard]] RunResult runBare(const std::vector<std::string>& arguments,
                                  const std::function<void()>& prepare = {}) const;

 private:
  TemporaryFolder folder_;
  std::map<std::string, std::string> environment_;
};

extern const std::string kTool;
/// Where the build has its own codesign, codesign_allocate and xcrun, which runs use.
extern const std::filesystem::path kSigningTools;
/// Signs the app as a finished build is, with the identity of every workplace. Returns it.
std::filesystem::path signedApp(const std::filesystem::path& app);
extern const std::string kKey;
extern const std::string kSecret;

}  // namespace test

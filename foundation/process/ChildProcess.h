#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "foundation/base/Data.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

/// How a child ended.
struct Termination {
  enum class Reason { exited, signalled };
  Reason reason = Reason::exited;
  /// The exit status, or the number of the signal that ended it.
  int status = 0;
};

/// Pipes for the three standard streams of a child, close-on-exec and above descriptor 2.
struct StandardPipes {
  struct Pipe {
    FileDescriptor readEnd = {};
    FileDescriptor writeEnd = {};
  };
  Pipe input = {};
  Pipe output = {};
  Pipe error = {};

  /// Fails when the system has no descriptors left.
  static Result<StandardPipes> open();
};

/// A running program with pipes on its three standard streams.
///
/// Children run in their own session (so that none prompts on the terminal), with default signal
/// dispositions and no other open descriptors. Nothing is ever written to standard input, whose
/// pipe stays open as long as this object: a child that reads it waits. Unless
/// `takeOutputWhileRunning` is called, output is read only after the child has ended, so a child
/// that writes more than a pipe holds never ends; pipes are made as large as the system allows.
/// Launching and waiting throw `Interrupted` in an interrupted run (see Interruption.h).
class ChildProcess {
 public:
  struct Launch {
    /// Used as is: no look-up in PATH, no shell.
    std::filesystem::path executable = {};
    std::vector<std::string> arguments = {};
    /// Absent: the caller's.
    std::optional<std::filesystem::path> workingDirectory = {};
    /// The child's whole environment; absent: the caller's.
    std::optional<Environment> environment = {};
  };

  /// Fails with the path and the system's error text when the program cannot be started (missing,
  /// not executable, unknown format, working directory missing).
  static Result<ChildProcess> launch(const Launch& launch, StandardPipes pipes);
  /// The same with new pipes; also fails when they cannot be made.
  static Result<ChildProcess> launch(const Launch& launch);

  ChildProcess(ChildProcess&&) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  /// A child that is still running is left alone; a later launch reaps it, or else the system does.
  ~ChildProcess();

  [[nodiscard]] pid_t processIdentifier() const { return pid_; }
  /// From now on a child that reads its standard input finds the end.
  void closeStandardInput() { standardInput_.reset(); }
  /// True until the child has ended; never blocks.
  bool isRunning();
  /// Sends SIGTERM; does nothing once the child has ended.
  void terminate();
  /// Blocks until the child has ended. If another part of this process has reaped it, the status is
  /// unknown and reported as an exit with -1.
  Termination waitUntilExit();
  /// Reads the output while the child runs, so that one that writes more than a pipe holds can end.
  /// Keeps the first megabyte of each stream and drops the rest. Returns once the child has ended
  /// or has closed both streams; call `waitUntilExit` next.
  void takeOutputWhileRunning();

  /// Everything the child wrote; to be called after it has ended. Both calls together wait at most
  /// two seconds for the ends of the pipes, which a grandchild may hold open.
  Data readStandardErrorToEnd();
  Data readStandardOutputToEnd();

 private:
  ChildProcess() = default;
  Termination takeTermination();
  /// Never blocks, and does not reap the child.
  [[nodiscard]] bool hasEndedUnreaped() const;
  Data readToEnd(const FileDescriptor& pipe, std::string text);
  pid_t pid_ = -1;
  std::optional<Termination> termination_;
  /// When reading the pipes ends; set by the first read.
  std::optional<std::chrono::steady_clock::time_point> readingEnds_;
  FileDescriptor standardInput_;
  FileDescriptor standardOutput_;
  FileDescriptor standardError_;
  std::string takenOutput_;
  std::string takenError_;
};

/// Sends the signal to every running child of this process, and to the processes in its group. Safe
/// in a signal handler. A child that is just being launched gets it too.
void terminateRunningChildren(int signal);

}  // namespace foundation

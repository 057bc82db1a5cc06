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

/// Pipes for the three standard streams of one child, above descriptor 2 and close-on-exec.
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
/// Children run in a session of their own (so that none asks on the terminal), with default signal
/// dispositions and only their three streams open. Nothing is ever written to standard input, and
/// its pipe stays open as long as this object: a child that reads it waits. Output is read only
/// after the end; the pipes are made as large as the system allows. Launching and waiting are check
/// points of an interrupted run (see Interruption.h).
class ChildProcess {
 public:
  struct Launch {
    /// Used as it stands: no look-up in PATH, no shell.
    std::filesystem::path executable = {};
    std::vector<std::string> arguments = {};
    /// Absent: the caller's.
    std::optional<std::filesystem::path> workingDirectory = {};
    /// The child's whole environment; absent: the caller's.
    std::optional<Environment> environment = {};
  };

  /// Fails with the path and the system's text when the program cannot be started (missing, not
  /// executable, of no known format, working directory missing).
  static Result<ChildProcess> launch(const Launch& launch, StandardPipes pipes);
  /// The same with pipes of its own; fails, too, when there are none.
  static Result<ChildProcess> launch(const Launch& launch);

  ChildProcess(ChildProcess&&) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  /// A child that still runs is left to itself and reaped when it ends, at the latest by the
  /// system.
  ~ChildProcess();

  [[nodiscard]] pid_t processIdentifier() const { return pid_; }
  /// Ends the child's standard input: from now on a child that reads it finds the end.
  void closeStandardInput() { standardInput_.reset(); }
  /// True until the child has ended; never blocks.
  bool isRunning();
  /// Asks the child to terminate (SIGTERM); nothing happens once it has ended.
  void terminate();
  /// Blocks until the child has ended.
  Termination waitUntilExit();
  /// Takes what the child writes while it runs, so that one with much to say ends like any other:
  /// the first megabyte of each stream is kept, the rest dropped. Returns once the child has ended
  /// or has closed both streams; `waitUntilExit` comes next.
  void takeOutputWhileRunning();

  /// Call after the end. Everything the child wrote; both together wait at most two seconds for the
  /// end of the pipes, since a grandchild may hold them open.
  Data readStandardErrorToEnd();
  Data readStandardOutputToEnd();

 private:
  ChildProcess() = default;
  Termination takeTermination();
  /// Never blocks, and leaves the child to be reaped.
  [[nodiscard]] bool hasEndedUnreaped() const;
  Data readToEnd(const FileDescriptor& pipe, std::string text);
  pid_t pid_ = -1;
  std::optional<Termination> termination_;
  /// Until when the pipes are read, set by the first reading.
  std::optional<std::chrono::steady_clock::time_point> readingEnds_;
  FileDescriptor standardInput_;
  FileDescriptor standardOutput_;
  FileDescriptor standardError_;
  std::string takenOutput_;
  std::string takenError_;
};

/// Sends the signal to every running child of this process and to what those have started. Safe in
/// a signal handler. A child that is being launched at this moment gets it as well.
void terminateRunningChildren(int signal);

}  // namespace foundation

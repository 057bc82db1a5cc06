#include "foundation/process/ChildProcess.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "foundation/host/Host.h"
#include "foundation/process/Interruption.h"

extern char** environ;

namespace foundation {

namespace {

// ---- Running children

/// Read by signal handlers, so of fixed size and lock-free. A child for which there is no room runs
/// all the same.
std::array<std::atomic<pid_t>, 256> runningChildren;
static_assert(std::atomic<pid_t>::is_always_lock_free);

/// Counts the calls of `terminateRunningChildren`, so that a launch notices a concurrent one.
std::atomic<unsigned> terminationRound{0};
std::atomic<int> terminationSignal{0};

void remember(pid_t child) {
  for (auto& slot : runningChildren) {
    pid_t empty = 0;
    if (slot.compare_exchange_strong(empty, child)) return;
  }
}

/// To be called before the child is reaped: afterwards another process may get its number.
void forget(pid_t child) {
  for (auto& slot : runningChildren) {
    pid_t expected = child;
    if (slot.compare_exchange_strong(expected, 0)) return;
  }
}

/// True when the child has ended; does not reap it. Never blocks with WNOHANG in `flags`.
bool hasEnded(pid_t child, int flags) {
  siginfo_t info{};
  int status;
  do {
    info.si_pid = 0;
    status = ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT | flags);
  } while (status != 0 && errno == EINTR);
  // An error means that the child no longer exists.
  return status != 0 || info.si_pid == child;
}

/// Absent when the child has already been reaped elsewhere.
std::optional<Termination> reap(pid_t child) {
  forget(child);
  int status = 0;
  pid_t reaped;
  do {
    reaped = ::waitpid(child, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  if (reaped != child) return std::nullopt;
  if (WIFSIGNALED(status)) return Termination{Termination::Reason::signalled, WTERMSIG(status)};
  return Termination{Termination::Reason::exited, WEXITSTATUS(status)};
}

/// Children that outlived their owner; they are reaped when the next child is launched.
class Abandoned {
 public:
  void add(pid_t child) {
    const std::lock_guard lock(mutex_);
    children_.push_back(child);
  }
  void reapEnded() {
    const std::lock_guard lock(mutex_);
    std::erase_if(children_, [](pid_t child) {
      if (!hasEnded(child, WNOHANG)) return false;
      reap(child);
      return true;
    });
  }

 private:
  std::mutex mutex_;
  std::vector<pid_t> children_;
};

Abandoned& abandoned() {
  static Abandoned children;
  return children;
}

// ---- Launching

/// Moves the descriptor above the standard streams, which the child's pipes replace. Returns 0 or
/// an errno value.
int aboveStandardStreams(FileDescriptor& descriptor) {
  if (descriptor.get() > STDERR_FILENO) return 0;
  const int moved = ::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (moved < 0) return errno;
  descriptor.reset(moved);
  return 0;
}

int openPipe(StandardPipes::Pipe& pipe) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  pipe.readEnd.reset(ends[0]);
  pipe.writeEnd.reset(ends[1]);
  if (const int error = aboveStandardStreams(pipe.readEnd)) return error;
  if (const int error = aboveStandardStreams(pipe.writeEnd)) return error;
  host::enlargePipe(pipe.writeEnd.get());
  return 0;
}

/// A null-terminated array of C strings; they live as long as this object.
class CStrings {
 public:
  void add(std::string text) {
    hasNul_ = hasNul_ || text.find('\0') != text.npos;
    texts_.push_back(std::move(text));
  }
  /// True when a text contains a zero byte, and so cannot be passed on whole.
  [[nodiscard]] bool hasNul() const { return hasNul_; }
  char* const* pointers() {
    pointers_.clear();
    for (std::string& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
    return pointers_.data();
  }

 private:
  std::vector<std::string> texts_;
  std::vector<char*> pointers_;
  bool hasNul_ = false;
};

/// The attributes and actions of one launch. The first error is kept, and makes `run` fail.
class SpawnPlan {
 public:
  SpawnPlan() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
  }
  ~SpawnPlan() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  void setStream(const FileDescriptor& from, int stream) {
    check(::posix_spawn_file_actions_adddup2(&actions_, from.get(), stream));
  }
  void setWorkingDirectory(const std::filesystem::path& folder) {
    check(::posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
  }
  /// Own session, default signal dispositions, no blocked signals, no other descriptors.
  void isolate() {
    sigset_t signals;
    sigemptyset(&signals);
    check(::posix_spawnattr_setsigmask(&attributes_, &signals));
    sigfillset(&signals);
    sigdelset(&signals, SIGKILL);
    sigdelset(&signals, SIGSTOP);
    check(::posix_spawnattr_setsigdefault(&attributes_, &signals));
    short flags = POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    check(host::closeOtherDescriptors(actions_, flags));
    check(::posix_spawnattr_setflags(&attributes_, flags));
  }
  /// Returns 0 or an errno value, including that of a failed exec.
  int run(const std::filesystem::path& executable, char* const* arguments, char* const* environment,
          pid_t& child) {
    if (error_) return error_;
    return ::posix_spawn(&child, executable.c_str(), &actions_, &attributes_, arguments,
                         environment);
  }

 private:
  void check(int error) {
    if (!error_) error_ = error;
  }
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int error_ = 0;
};

/// While SIGCHLD is ignored, as some launchers leave it, the system discards every child's status.
void keepStatusOfChildren() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0 || action.sa_handler != SIG_IGN) return;
  action.sa_handler = SIG_DFL;
  ::sigaction(SIGCHLD, &action, nullptr);
}

Error launchFailure(const ChildProcess::Launch& launch, int error) {
  const std::string path = launch.executable.string();
  std::error_code ignored;
  if (launch.workingDirectory &&
      !std::filesystem::is_directory(*launch.workingDirectory, ignored)) {
    const std::string folder = launch.workingDirectory->string();
    return posixError(error, "cannot launch " + path + " in working directory " + folder, folder);
  }
  return posixError(error, "cannot launch " + path, path);
}

/// Registers the child, and passes on a termination that was requested since its start.
void registerLaunched(pid_t child, unsigned roundBefore) {
  remember(child);
  if (terminationRound.load() != roundBefore) ::kill(-child, terminationSignal.load());
}

}  // namespace

void terminateRunningChildren(int signal) {
  const int before = errno;
  terminationSignal.store(signal);
  terminationRound.fetch_add(1);
  for (const auto& slot : runningChildren) {
    // A child leads its session, and so a process group with its own number.
    if (const pid_t child = slot.load()) ::kill(-child, signal);
  }
  errno = before;
}

Result<StandardPipes> StandardPipes::open() {
  StandardPipes pipes;
  for (Pipe* const pipe : {&pipes.input, &pipes.output, &pipes.error}) {
    if (const int problem = openPipe(*pipe)) {
      return posixError(problem, "cannot make pipes for a child");
    }
  }
  return Result<StandardPipes>(std::move(pipes));
}

Result<ChildProcess> ChildProcess::launch(const Launch& launch) {
  Result<StandardPipes> pipes = StandardPipes::open();
  if (!pipes) return pipes.error();
  return ChildProcess::launch(launch, *std::move(pipes));
}

Result<ChildProcess> ChildProcess::launch(const Launch& launch, StandardPipes pipes) {
  abandoned().reapEnded();
  keepStatusOfChildren();
  CStrings arguments;
  arguments.add(launch.executable.native());
  for (const std::string& argument : launch.arguments) arguments.add(argument);
  CStrings environment;
  if (launch.environment) {
    for (const auto& [name, value] : *launch.environment) {
      environment.add(std::string(name).append("=").append(value));
    }
  }
  if (arguments.hasNul() || environment.hasNul()) return launchFailure(launch, EINVAL);

  SpawnPlan plan;
  if (launch.workingDirectory) plan.setWorkingDirectory(*launch.workingDirectory);
  plan.setStream(pipes.input.readEnd, STDIN_FILENO);
  plan.setStream(pipes.output.writeEnd, STDOUT_FILENO);
  plan.setStream(pipes.error.writeEnd, STDERR_FILENO);
  plan.isolate();
  const unsigned round = terminationRound.load();
  throwIfInterrupted();
  ChildProcess child;
  if (const int problem =
          plan.run(launch.executable, arguments.pointers(),
                   launch.environment ? environment.pointers() : environ, child.pid_)) {
    child.pid_ = -1;
    return launchFailure(launch, problem);
  }
  registerLaunched(child.pid_, round);
  child.standardInput_ = std::move(pipes.input.writeEnd);
  child.standardOutput_ = std::move(pipes.output.readEnd);
  child.standardError_ = std::move(pipes.error.readEnd);
  return Result<ChildProcess>(std::move(child));
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      termination_(std::exchange(other.termination_, std::nullopt)),
      readingEnds_(other.readingEnds_),
      standardInput_(std::move(other.standardInput_)),
      standardOutput_(std::move(other.standardOutput_)),
      standardError_(std::move(other.standardError_)),
      takenOutput_(std::move(other.takenOutput_)),
      takenError_(std::move(other.takenError_)) {}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && isRunning()) abandoned().add(pid_);
}

Termination ChildProcess::takeTermination() {
  // An unknown status must not pass for a success.
  if (!termination_) {
    termination_ = reap(pid_).value_or(Termination{Termination::Reason::exited, -1});
  }
  return *termination_;
}

bool ChildProcess::hasEndedUnreaped() const { return termination_ || hasEnded(pid_, WNOHANG); }

bool ChildProcess::isRunning() {
  if (termination_) return false;
  if (!hasEndedUnreaped()) return true;
  takeTermination();
  return false;
}

void ChildProcess::terminate() {
  // Not reaped yet, so the number still belongs to this child.
  if (isRunning()) ::kill(pid_, SIGTERM);
}

Termination ChildProcess::waitUntilExit() {
  if (!termination_) hasEnded(pid_, 0);
  // Its descendants share its group, whose number stays taken until the child is reaped.
  if (!termination_ && isInterrupted()) ::kill(-pid_, SIGKILL);
  const Termination termination = takeTermination();
  throwIfInterrupted();
  return termination;
}

}  // namespace foundation

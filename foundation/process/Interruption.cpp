#include "foundation/process/Interruption.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <span>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>

#include "foundation/process/ChildProcess.h"

namespace foundation {

namespace {

constexpr std::array kInterruptingSignals = {SIGINT, SIGTERM, SIGHUP};

// ---- Shared with the signal handler

constexpr int kNone = 0;
/// The run's outcome is settled, or no run is being watched.
constexpr int kClosed = -1;

/// The signal that interrupted the run, or one of the two above.
std::atomic<int> takenSignal{kClosed};
/// A pipe to which the first signal writes, and which is never read. Kept open after the watch,
/// since a handler may run late.
std::atomic<int> noticeReadEnd{-1};
std::atomic<int> noticeWriteEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

void onSignal(int signal) {
  const int before = errno;
  int expected = kNone;
  if (takenSignal.compare_exchange_strong(expected, signal)) {
    [[maybe_unused]] const ssize_t written = ::write(noticeWriteEnd.load(), "", 1);
  } else if (expected != kClosed) {
    terminateRunningChildren(SIGKILL);
    endBySignal(signal);
  }
  errno = before;
}

// ---- The run

std::atomic<std::thread::id> runThread{};
/// Set once the run has noticed the interruption and is unwinding.
std::atomic<bool> isUnwinding{false};

using PipeEnds = std::pair<FileDescriptor, FileDescriptor>;

/// Read end and write end; absent when no descriptors are left.
std::optional<PipeEnds> openPipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return std::nullopt;
  return PipeEnds(FileDescriptor(ends[0]), FileDescriptor(ends[1]));
}

void setAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  // The run's system calls go on; it notices the interruption by other means.
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void setBlocked(int how, std::span<const int> which) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : which) sigaddset(&signals, signal);
  ::pthread_sigmask(how, &signals, nullptr);
}

void takeSignals() {
  for (const int signal : kInterruptingSignals) {
    if (!isIgnored(signal)) setAction(signal, onSignal);
  }
}

/// The signal that has arrived, if any. If none has, signals do nothing from now on.
std::optional<int> closeRun() {
  int expected = kNone;
  if (!takenSignal.compare_exchange_strong(expected, kClosed) && expected != kClosed) {
    return expected;
  }
  for (const int signal : kInterruptingSignals) setAction(signal, SIG_IGN);
  return std::nullopt;
}

/// True when a descriptor became readable; false on timeout.
bool waitFor(std::span<pollfd> descriptors, int milliseconds) {
  int ready;
  do {
    ready = ::poll(descriptors.data(), descriptors.size(), milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

}  // namespace

InterruptionWatch::InterruptionWatch(Options options) : options_(std::move(options)) {
  auto notice = openPipe();
  auto finished = openPipe();
  if (!notice || !finished) return;
  noticeReadEnd = notice->first.release();
  noticeWriteEnd = notice->second.release();
  finished_ = std::move(finished->first);
  finishedWriteEnd_ = std::move(finished->second);
  runThread = std::this_thread::get_id();
  isUnwinding = false;
  takenSignal = kNone;
  // Only the thread made here takes the signals; this one and those that it starts are not
  // disturbed.
  setBlocked(SIG_BLOCK, kInterruptingSignals);
  try {
    thread_ = std::thread([this] { watch(); });
  } catch (const std::system_error&) {
    takenSignal = kClosed;
    setBlocked(SIG_UNBLOCK, kInterruptingSignals);
    finished_.reset();
    return;
  }
  takeSignals();
}

InterruptionWatch::~InterruptionWatch() { finish(); }

std::optional<int> InterruptionWatch::finish() {
  if (!finished_) return std::nullopt;
  const std::optional<int> signal = closeRun();
  finishedWriteEnd_.reset();
  // Does not return if the other thread has taken over.
  if (thread_.joinable()) thread_.join();
  // From now on this thread takes a second signal.
  setBlocked(SIG_UNBLOCK, kInterruptingSignals);
  return signal;
}

bool InterruptionWatch::isFinishedWithin(std::chrono::milliseconds limit) const {
  pollfd finished{.fd = finished_.get(), .events = POLLIN, .revents = 0};
  return waitFor({&finished, 1}, static_cast<int>(limit.count()));
}

void InterruptionWatch::endChildren() {
  terminateRunningChildren(SIGTERM);
  if (!isFinishedWithin(options_.patienceWithChildren)) terminateRunningChildren(SIGKILL);
}

void InterruptionWatch::watch() {
  setBlocked(SIG_UNBLOCK, kInterruptingSignals);
  std::array<pollfd, 2> either = {pollfd{.fd = finished_.get(), .events = POLLIN, .revents = 0},
                                  pollfd{.fd = noticeReadEnd, .events = POLLIN, .revents = 0}};
  waitFor(either, -1);
  if (!isInterrupted()) return;
  if (options_.wake) options_.wake();
  endChildren();
  if (isFinishedWithin(options_.patienceWithRun)) return;
  if (isUnwinding) {
    constexpr std::chrono::milliseconds kForever{-1};
    static_cast<void>(isFinishedWithin(kForever));
    return;
  }
  const int signal = takenSignal;
  if (options_.takeOver) options_.takeOver(signal);
  endBySignal(signal);
}

bool isInterrupted() { return takenSignal > kNone; }

void throwIfInterrupted() {
  if (!isInterrupted() || std::this_thread::get_id() != runThread.load()) return;
  isUnwinding = true;
  throw Interrupted();
}

int interruptionDescriptor() { return noticeReadEnd; }

void ignoreInterruptionsFromHere() {
  if (takenSignal == kClosed) return;
  if (closeRun()) {
    isUnwinding = true;
    throw Interrupted();
  }
}

void endBySignal(int signal) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
  setBlocked(SIG_UNBLOCK, {&signal, 1});
  ::raise(signal);
  // Reached by the first process of a container, which signals do not end.
  constexpr int shellsNumberForSignals = 128;
  ::_exit(shellsNumberForSignals + signal);
}

}  // namespace foundation

// Preloaded into a program under test: makes one of its system calls fail, or reports which calls
// it makes from where. Not for sanitized programs, and it leaves the program's children alone.
//
//   FAULT_PROGRAM=NAME  do nothing in programs of other names
//   FAULT_REPORT=FILE   where to write, a line each: "site KIND:CHAIN" at each call of a kind
//                       from a chain of callers, or "met" when the wanted call came
//   FAULT_CALLERS=N     how many callers make a chain
//   FAULT_SITE=SITE     fail the first call from this KIND:CHAIN, and report no others
//   FAULT_SIGNAL=N      the call goes through, but the program gets this signal first
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Kind {
  const char* name;
  int error;
};

using Text = std::array<char, 64>;

/// Takes the variable out of the environment, away from the program's children.
Text taken(const char* name) {
  Text text{};
  const char* const value = std::getenv(name);
  if (value) std::snprintf(text.data(), text.size(), "%s", value);
  ::unsetenv(name);
  return text;
}

/// 0 without digits.
int numberOf(const Text& text) { return static_cast<int>(std::strtol(text.data(), nullptr, 10)); }

class Shim {
 public:
  bool mustFail(const Kind& kind) {
    if (!isActive_ || isInside) return false;
    isInside = true;
    const int before = errno;
    const bool fails = decide(kind);
    errno = fails ? kind.error : before;
    isInside = false;
    return fails;
  }

  void start() {
    const char* const report = std::getenv("FAULT_REPORT");
    const char* const program = std::getenv("FAULT_PROGRAM");
    if (!report || !program || std::strcmp(program, program_invocation_short_name) != 0) return;
    // By number, since `open` is among the calls that are replaced.
    report_ = static_cast<int>(
        ::syscall(SYS_openat, AT_FDCWD, report, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    // Out of the way of a program that counts its descriptors.
    const int high = static_cast<int>(::syscall(SYS_fcntl, report_, F_DUPFD_CLOEXEC, 900));
    if (high >= 0) {
      ::syscall(SYS_close, report_);
      report_ = high;
    }
    wanted_ = taken("FAULT_SITE");
    callers_ = numberOf(taken("FAULT_CALLERS"));
    signal_ = numberOf(taken("FAULT_SIGNAL"));
    for (const char* const name : {"LD_PRELOAD", "FAULT_REPORT", "FAULT_PROGRAM"}) ::unsetenv(name);
    // The first call loads what it needs.
    std::array<void*, 4> frames;
    ::backtrace(frames.data(), static_cast<int>(frames.size()));
    isActive_ = true;
  }

  static thread_local bool isInside;

 private:
  /// The last callers, as a number that is the same wherever their modules were loaded.
  [[nodiscard]] std::uint64_t callers() const {
    dl_find_object own{};
    _dl_find_object(reinterpret_cast<void*>(&taken), &own);
    std::array<void*, 40> frames;
    constexpr int ourOwn = 5;
    const int count =
        ::backtrace(frames.data(), std::min(static_cast<int>(frames.size()), callers_ + ourOwn));
    std::uint64_t hash = 0;
    int left = callers_;
    for (int i = 0; i < count && left > 0; ++i) {
      void* const address = frames[static_cast<std::size_t>(i)];
      dl_find_object module{};
      if (_dl_find_object(address, &module) != 0) continue;
      if (module.dlfo_map_start == own.dlfo_map_start) continue;
      const auto offset =
          static_cast<const char*>(address) - static_cast<const char*>(module.dlfo_map_start);
      hash = (hash ^ static_cast<std::uint64_t>(offset)) * 1099511628211u;
      --left;
    }
    return hash ^ hash >> 32;
  }

  bool decide(const Kind& kind) {
    const std::size_t length = std::strlen(kind.name);
    const bool isOfInterest = std::strncmp(kind.name, wanted_.data(), length) == 0;
    if (wanted_[0] != 0 && !isOfInterest) return false;
    Text site;
    std::snprintf(site.data(), site.size(), "%s:%016" PRIx64, kind.name, callers());
    if (wanted_[0] == 0) {
      say("site %s\n", site.data());
      return false;
    }
    if (std::strcmp(site.data(), wanted_.data()) != 0 || wasMet_.exchange(true)) return false;
    say("met\n");
    if (signal_ != 0) ::kill(::getpid(), signal_);
    return signal_ == 0;
  }

  template <class... Values>
  void say(const char* format, Values... values) {
    std::array<char, 128> line;
    const int size = std::snprintf(line.data(), line.size(), format, values...);
    ::syscall(SYS_write, report_, line.data(), static_cast<std::size_t>(size));
  }

  bool isActive_ = false;
  Text wanted_{};
  int callers_ = 0;
  int signal_ = 0;
  int report_ = -1;
  std::atomic<bool> wasMet_{false};
};

thread_local bool Shim::isInside = false;

/// Never destroyed: calls come until the very end.
Shim& shim() {
  static auto& only = *new Shim;
  return only;
}

__attribute__((constructor)) void start() { shim().start(); }

using Word = std::intptr_t;

/// Which of both `open` is with these flags.
Kind opening(Word flags) {
  return (flags & O_CREAT) != 0 ? Kind{"create", ENOSPC} : Kind{"open", EMFILE};
}

}  // namespace

// FAULT(NAME, FAILURE, KIND): replaces the system's NAME, through a label since headers declare
// that one in their own way. None of these functions takes anything but up to six numbers and
// pointers, which are all in registers; so are the arguments passed on that a call does not have.
// KIND may use the arguments.
#define FAULT(NAME, FAILURE, ...)                                                                \
  extern "C" __attribute__((visibility("default")))                                              \
  Word fault_##NAME(Word, Word, Word, Word, Word, Word) __asm__(#NAME);                          \
  extern "C" Word fault_##NAME(Word a, Word b, Word c, Word d, Word e, Word f) {                 \
    static const auto real = reinterpret_cast<decltype(&fault_##NAME)>(dlsym(RTLD_NEXT, #NAME)); \
    if (shim().mustFail(__VA_ARGS__)) return FAILURE;                                            \
    return real(a, b, c, d, e, f);                                                               \
  }
/// The same for NAME and its twin for large files.
#define FAULT64(NAME, FAILURE, ...) \
  FAULT(NAME, FAILURE, __VA_ARGS__) \
  FAULT(NAME##64, FAILURE, __VA_ARGS__)

FAULT64(open, -1, opening(b))
FAULT64(openat, -1, opening(c))
FAULT64(fopen, 0, {"fopen", EMFILE})
FAULT(read, -1, {"read", EIO})
FAULT64(pread, -1, {"read", EIO})
FAULT(write, -1, {"write", ENOSPC})
FAULT64(pwrite, -1, {"write", ENOSPC})
FAULT(copy_file_range, -1, {"copy", ENOSPC})
FAULT(sendfile, -1, {"copy", ENOSPC})
FAULT(ioctl, -1, {"copy", ENOSPC})
FAULT(mkdir, -1, {"mkdir", ENOSPC})
FAULT(mkdirat, -1, {"mkdir", ENOSPC})
FAULT(symlinkat, -1, {"link", ENOSPC})
FAULT(readlink, -1, {"readlink", EIO})
FAULT(readlinkat, -1, {"readlink", EIO})
FAULT(rename, -1, {"rename", EIO})
FAULT(unlink, -1, {"remove", EIO})
FAULT(unlinkat, -1, {"remove", EIO})
FAULT(rmdir, -1, {"remove", EIO})
FAULT64(mmap, -1, {"map", ENOMEM})
FAULT64(fstat, -1, {"fstat", EIO})
FAULT64(stat, -1, {"stat", EIO})
FAULT64(lstat, -1, {"stat", EIO})
FAULT64(fstatat, -1, {"stat", EIO})
FAULT(statx, -1, {"stat", EIO})
FAULT(access, -1, {"stat", EIO})
FAULT(chmod, -1, {"attributes", EPERM})
FAULT(fchmod, -1, {"attributes", EPERM})
FAULT(fchmodat, -1, {"attributes", EPERM})
FAULT(futimens, -1, {"attributes", EPERM})
FAULT(utimensat, -1, {"attributes", EPERM})
FAULT64(ftruncate, -1, {"truncate", ENOSPC})
FAULT(fsync, -1, {"sync", EIO})
FAULT(flock, -1, {"lock", ENOLCK})
FAULT64(fcntl, -1, {"fcntl", EMFILE})
FAULT(opendir, 0, {"list", ENOMEM})
FAULT(fdopendir, 0, {"list", ENOMEM})
FAULT64(readdir, 0, {"list", ENOMEM})
FAULT(posix_spawn, EAGAIN, {"spawn", EAGAIN})
FAULT(waitid, -1, {"wait", EINTR})
FAULT(waitpid, -1, {"wait", EINTR})
FAULT(pipe2, -1, {"pipe", EMFILE})
FAULT(dup2, -1, {"pipe", EMFILE})
FAULT(pthread_create, EAGAIN, {"thread", EAGAIN})
FAULT(poll, -1, {"poll", ENOMEM})
FAULT(getaddrinfo, EAI_AGAIN, {"resolve", ENOMEM})
FAULT(socket, -1, {"socket", EMFILE})
FAULT(socketpair, -1, {"socket", EMFILE})
FAULT(getsockopt, -1, {"option", ENOBUFS})
FAULT(setsockopt, -1, {"option", ENOBUFS})
FAULT(getsockname, -1, {"option", ENOBUFS})
FAULT(getpeername, -1, {"option", ENOBUFS})
FAULT(connect, -1, {"connect", ENETUNREACH})
FAULT(send, -1, {"send", ECONNRESET})
FAULT(sendmsg, -1, {"send", ECONNRESET})
FAULT(recv, -1, {"receive", ECONNRESET})
FAULT(recvfrom, -1, {"receive", ECONNRESET})

extern "C" __attribute__((visibility("default"))) int fault_close(int descriptor) __asm__("close");
extern "C" int fault_close(int descriptor) {
  // The descriptor is gone all the same, as it is when the system fails to write what it held.
  const bool fails = shim().mustFail({"close", EIO});
  const long result = ::syscall(SYS_close, descriptor);
  if (!fails) return static_cast<int>(result);
  errno = EIO;
  return -1;
}

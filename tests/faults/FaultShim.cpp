// Preloaded into a program under test: makes one of its system calls fail, or reports which calls
// it makes from where. Not for sanitized programs, and it leaves the program's children alone.
//
//   FAULT_PROGRAM=NAME  do nothing in programs of other names
//   FAULT_REPORT=FILE   where to write, a line each: "site KIND:CHAIN" at the first call of a kind
//                       from a chain of callers, or "met" when the wanted call came
//   FAULT_CALLERS=N     how many callers make a chain
//   FAULT_SITE=SITE     fail the first call from this KIND:CHAIN, and report no others
//   FAULT_QUOTA=1       where the disk would be full, the user's quota is used up
//   FAULT_SIGNAL=N      the call goes through, but the program gets this signal first
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Kind {
  const char* name;
  int error;
};

/// Where a module lies in memory, so that an address counts as the same wherever it was loaded.
struct Module {
  std::uintptr_t first = 0;
  std::uintptr_t last = 0;
  std::uint64_t name = 0;
  bool isShim = false;
};

using Text = std::array<char, 64>;

constexpr std::uint64_t kHashStart = 14695981039346656037u;

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value) {
  for (int shift = 0; shift < 64; shift += 8) {
    hash = (hash ^ ((value >> shift) & 0xff)) * 1099511628211u;
  }
  return hash;
}

std::uint64_t hashOf(const char* text) {
  std::uint64_t hash = kHashStart;
  for (; *text; ++text) hash = mixed(hash, static_cast<unsigned char>(*text));
  return hash;
}

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
    errno = fails ? errorOf(kind) : before;
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
    isQuota_ = taken("FAULT_QUOTA")[0] != 0;
    signal_ = numberOf(taken("FAULT_SIGNAL"));
    for (const char* const name : {"LD_PRELOAD", "FAULT_REPORT", "FAULT_PROGRAM"}) ::unsetenv(name);
    // The first call loads what it needs.
    std::array<void*, 4> frames;
    ::backtrace(frames.data(), static_cast<int>(frames.size()));
    ::dl_iterate_phdr(addModule, this);
    isActive_ = true;
  }

  [[nodiscard]] int errorOf(const Kind& kind) const {
    return kind.error == ENOSPC && isQuota_ ? EDQUOT : kind.error;
  }

  static thread_local bool isInside;

 private:
  static int addModule(dl_phdr_info* info, std::size_t, void* self) {
    auto& shim = *static_cast<Shim*>(self);
    const char* const slash = std::strrchr(info->dlpi_name, '/');
    const char* const name = slash ? slash + 1 : info->dlpi_name;
    for (int i = 0; i < info->dlpi_phnum && shim.moduleCount_ < shim.modules_.size(); ++i) {
      const auto& segment = info->dlpi_phdr[i];
      if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X)) continue;
      Module& module = shim.modules_[shim.moduleCount_++];
      module.first = info->dlpi_addr + segment.p_vaddr;
      module.last = module.first + segment.p_memsz;
      module.name = hashOf(name);
      const auto here = reinterpret_cast<std::uintptr_t>(&addModule);
      module.isShim = module.first <= here && here < module.last;
    }
    return 0;
  }

  const Module* moduleOf(std::uintptr_t address) const {
    for (std::size_t i = 0; i < moduleCount_; ++i) {
      if (modules_[i].first <= address && address < modules_[i].last) return &modules_[i];
    }
    return nullptr;
  }

  std::uint64_t callers() const {
    std::array<void*, 40> frames;
    constexpr int ourOwn = 5;
    const int count =
        ::backtrace(frames.data(), std::min(static_cast<int>(frames.size()), callers_ + ourOwn));
    std::uint64_t hash = kHashStart;
    int left = callers_;
    for (int i = 0; i < count && left > 0; ++i) {
      const auto address = reinterpret_cast<std::uintptr_t>(frames[static_cast<std::size_t>(i)]);
      const Module* const module = moduleOf(address);
      if (!module || module->isShim) continue;
      hash = mixed(mixed(hash, module->name), address - module->first);
      --left;
    }
    return hash;
  }

  bool decide(const Kind& kind) {
    const std::size_t length = std::strlen(kind.name);
    const bool isOfInterest = std::strncmp(kind.name, wanted_.data(), length) == 0;
    if (wanted_[0] != 0 && !isOfInterest) return false;
    const std::uint64_t chain = callers();
    Text site;
    std::snprintf(site.data(), site.size(), "%s:%016llx", kind.name,
                  static_cast<unsigned long long>(chain));
    if (wanted_[0] == 0) {
      if (isNew(mixed(hashOf(kind.name), chain))) say("site %s\n", site.data());
      return false;
    }
    if (std::strcmp(site.data(), wanted_.data()) != 0 || wasMet_.exchange(true)) return false;
    say("met\n");
    if (signal_ != 0) ::kill(::getpid(), signal_);
    return signal_ == 0;
  }

  bool isNew(std::uint64_t site) {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = site % seen_.size();; i = (i + 1) % seen_.size()) {
      if (seen_[i] == site) return false;
      if (seen_[i] != 0) continue;
      seen_[i] = site;
      return true;
    }
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
  bool isQuota_ = false;
  int report_ = -1;
  std::atomic<bool> wasMet_{false};
  std::mutex mutex_;
  std::array<std::uint64_t, 16384> seen_{};
  std::array<Module, 128> modules_{};
  std::size_t moduleCount_ = 0;
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

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

}  // namespace

#define KIND(NAME, ERROR) static constexpr Kind kind_##NAME = {#NAME, ERROR};

// By its label the function takes the place of the system's own, whatever a header says of that
// one.
// NOLINTBEGIN(bugprone-macro-parentheses): these are types, names and lists
#define FAULT(KIND_NAME, RESULT, NAME, FAILURE, PARAMETERS, ARGUMENTS)                             \
  extern "C" __attribute__((visibility("default"))) RESULT fault_##NAME PARAMETERS __asm__(#NAME); \
  extern "C" RESULT fault_##NAME PARAMETERS {                                                      \
    static const auto real = reinterpret_cast<decltype(&fault_##NAME)>(dlsym(RTLD_NEXT, #NAME));   \
    if (shim().mustFail(kind_##KIND_NAME)) return FAILURE;                                         \
    return real ARGUMENTS;                                                                         \
  }
/// The same for NAME and its twin for large files.
#define FAULT64(KIND_NAME, RESULT, NAME, FAILURE, PARAMETERS, ARGUMENTS) \
  FAULT(KIND_NAME, RESULT, NAME, FAILURE, PARAMETERS, ARGUMENTS)         \
  FAULT(KIND_NAME, RESULT, NAME##64, FAILURE, PARAMETERS, ARGUMENTS)
// NOLINTEND(bugprone-macro-parentheses)

// The last argument is there or not; one that is not is passed on as whatever is in its place,
// which nobody reads.
KIND(open, EMFILE)
KIND(create, ENOSPC)
#define kind_opening ((f & O_CREAT) != 0 ? kind_create : kind_open)
FAULT64(opening, int, open, -1, (const char* p, int f, mode_t m), (p, f, m))
FAULT64(opening, int, openat, -1, (int d, const char* p, int f, mode_t m), (d, p, f, m))
KIND(fopen, EMFILE)
FAULT64(fopen, FILE*, fopen, nullptr, (const char* p, const char* m), (p, m))
KIND(read, EIO)
FAULT(read, ssize_t, read, -1, (int d, void* b, size_t n), (d, b, n))
FAULT64(read, ssize_t, pread, -1, (int d, void* b, size_t n, off_t o), (d, b, n, o))
KIND(write, ENOSPC)
FAULT(write, ssize_t, write, -1, (int d, const void* b, size_t n), (d, b, n))
FAULT64(write, ssize_t, pwrite, -1, (int d, const void* b, size_t n, off_t o), (d, b, n, o))
KIND(copy, ENOSPC)
FAULT(copy, ssize_t, copy_file_range, -1, (int a, off_t* p, int b, off_t* q, size_t n, unsigned f),
      (a, p, b, q, n, f))
FAULT(copy, ssize_t, sendfile, -1, (int a, int b, off_t* o, size_t n), (a, b, o, n))
FAULT(copy, int, ioctl, -1, (int d, unsigned long r, void* v), (d, r, v))
KIND(mkdir, ENOSPC)
FAULT(mkdir, int, mkdir, -1, (const char* p, mode_t m), (p, m))
FAULT(mkdir, int, mkdirat, -1, (int d, const char* p, mode_t m), (d, p, m))
KIND(link, ENOSPC)
FAULT(link, int, symlinkat, -1, (const char* t, int d, const char* p), (t, d, p))
KIND(readlink, EIO)
FAULT(readlink, ssize_t, readlink, -1, (const char* p, char* b, size_t n), (p, b, n))
FAULT(readlink, ssize_t, readlinkat, -1, (int d, const char* p, char* b, size_t n), (d, p, b, n))
KIND(rename, EIO)
FAULT(rename, int, rename, -1, (const char* a, const char* b), (a, b))
KIND(remove, EIO)
FAULT(remove, int, unlink, -1, (const char* p), (p))
FAULT(remove, int, unlinkat, -1, (int d, const char* p, int f), (d, p, f))
FAULT(remove, int, rmdir, -1, (const char* p), (p))
KIND(map, ENOMEM)
FAULT64(map, void*, mmap, MAP_FAILED, (void* a, size_t n, int p, int f, int d, off_t o),
        (a, n, p, f, d, o))
KIND(fstat, EIO)
FAULT64(fstat, int, fstat, -1, (int d, void* s), (d, s))
KIND(stat, EIO)
FAULT64(stat, int, stat, -1, (const char* p, void* s), (p, s))
FAULT64(stat, int, lstat, -1, (const char* p, void* s), (p, s))
FAULT64(stat, int, fstatat, -1, (int d, const char* p, void* s, int f), (d, p, s, f))
FAULT(stat, int, statx, -1, (int d, const char* p, int f, unsigned m, void* s), (d, p, f, m, s))
FAULT(stat, int, access, -1, (const char* p, int m), (p, m))
KIND(attributes, EPERM)
FAULT(attributes, int, chmod, -1, (const char* p, mode_t m), (p, m))
FAULT(attributes, int, fchmod, -1, (int d, mode_t m), (d, m))
FAULT(attributes, int, fchmodat, -1, (int d, const char* p, mode_t m, int f), (d, p, m, f))
FAULT(attributes, int, futimens, -1, (int d, const timespec* t), (d, t))
FAULT(attributes, int, utimensat, -1, (int d, const char* p, const timespec* t, int f),
      (d, p, t, f))
KIND(truncate, ENOSPC)
FAULT64(truncate, int, ftruncate, -1, (int d, off_t n), (d, n))
FAULT(truncate, int, posix_fallocate, shim().errorOf(kind_truncate), (int d, off_t o, off_t n),
      (d, o, n))
KIND(sync, EIO)
FAULT(sync, int, fsync, -1, (int d), (d))
KIND(lock, ENOLCK)
FAULT(lock, int, flock, -1, (int d, int o), (d, o))
KIND(fcntl, EMFILE)
FAULT64(fcntl, int, fcntl, -1, (int d, int c, void* v), (d, c, v))
KIND(list, ENOMEM)
FAULT(list, DIR*, opendir, nullptr, (const char* p), (p))
FAULT(list, DIR*, fdopendir, nullptr, (int d), (d))
FAULT64(list, void*, readdir, nullptr, (DIR * d), (d))
KIND(spawn, EAGAIN)
FAULT(spawn, int, posix_spawn, kind_spawn.error,
      (pid_t * c, const char* p, const void* a, const void* t, char* const* v, char* const* e),
      (c, p, a, t, v, e))
KIND(wait, EINTR)
FAULT(wait, int, waitid, -1, (int t, id_t i, void* s, int o), (t, i, s, o))
FAULT(wait, pid_t, waitpid, -1, (pid_t p, int* s, int o), (p, s, o))
KIND(pipe, EMFILE)
FAULT(pipe, int, pipe, -1, (int* e), (e))
FAULT(pipe, int, pipe2, -1, (int* e, int f), (e, f))
FAULT(pipe, int, dup2, -1, (int a, int b), (a, b))
KIND(thread, EAGAIN)
FAULT(thread, int, pthread_create, kind_thread.error,
      (void* t, const void* a, void* (*f)(void*), void* v), (t, a, f, v))
KIND(poll, ENOMEM)
FAULT(poll, int, poll, -1, (pollfd * d, nfds_t n, int t), (d, n, t))
KIND(resolve, ENOMEM)
FAULT(resolve, int, getaddrinfo, EAI_AGAIN, (const char* n, const char* s, const void* h, void* r),
      (n, s, h, r))
KIND(socket, EMFILE)
FAULT(socket, int, socket, -1, (int d, int t, int p), (d, t, p))
FAULT(socket, int, socketpair, -1, (int d, int t, int p, int* e), (d, t, p, e))
KIND(option, ENOBUFS)
FAULT(option, int, getsockopt, -1, (int d, int l, int o, void* v, void* n), (d, l, o, v, n))
FAULT(option, int, setsockopt, -1, (int d, int l, int o, const void* v, socklen_t n),
      (d, l, o, v, n))
FAULT(option, int, getsockname, -1, (int d, void* a, void* n), (d, a, n))
FAULT(option, int, getpeername, -1, (int d, void* a, void* n), (d, a, n))
KIND(connect, ENETUNREACH)
FAULT(connect, int, connect, -1, (int d, const void* a, socklen_t n), (d, a, n))
KIND(send, ECONNRESET)
FAULT(send, ssize_t, send, -1, (int d, const void* b, size_t n, int f), (d, b, n, f))
FAULT(send, ssize_t, sendmsg, -1, (int d, const void* m, int f), (d, m, f))
KIND(receive, ECONNRESET)
FAULT(receive, ssize_t, recv, -1, (int d, void* b, size_t n, int f), (d, b, n, f))
FAULT(receive, ssize_t, recvfrom, -1, (int d, void* b, size_t n, int f, void* a, void* l),
      (d, b, n, f, a, l))

KIND(close, EIO)
extern "C" __attribute__((visibility("default"))) int fault_close(int descriptor) __asm__("close");
extern "C" int fault_close(int descriptor) {
  // The descriptor is gone all the same, as it is when the system fails to write what it held.
  const bool fails = shim().mustFail(kind_close);
  const long result = ::syscall(SYS_close, descriptor);
  if (!fails) return static_cast<int>(result);
  errno = kind_close.error;
  return -1;
}

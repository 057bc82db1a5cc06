#include "foundation/file/MappingGuard.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace foundation {

/// An entry of the list that the signal handler walks. Reused, never freed.
struct MappingGuard::Watch {
  std::atomic<std::uintptr_t> start{0};
  std::atomic<std::uintptr_t> end{0};
  std::atomic<bool> isTruncated{false};
  bool isInUse = false;
  std::string path;
  Watch* next = nullptr;
};

/// What the signal handler uses is constant or atomic.
struct MappingWatches {
  using Watch = MappingGuard::Watch;

  static inline std::mutex mutex;
  static inline std::atomic<Watch*> first{nullptr};
  static inline std::atomic<Watch*> lastTruncated{nullptr};
  static inline std::uintptr_t pageSize = 0;
  static inline struct sigaction before {};

  static void install() {
    pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGBUS, &action, &before);
  }

  /// A free entry; one whose mapping was truncated keeps its path for `checkAll`.
  static Watch* take() {
    for (Watch* watch = first.load(); watch; watch = watch->next) {
      if (!watch->isInUse && !watch->isTruncated) return watch;
    }
    auto* const made = new Watch;
    made->next = first.load();
    first.store(made);
    return made;
  }

  /// Uses nothing but system calls and atomic values.
  static void onBusError(int signal, siginfo_t* info, void*) {
    const int error = errno;
    const bool isSentByProcess = info->si_code <= 0;
    const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    for (Watch* watch = isSentByProcess ? nullptr : first.load(); watch; watch = watch->next) {
      if (address < watch->start || address >= watch->end) continue;
      if (!replaceWithZeros(address, watch->end)) break;
      watch->isTruncated = true;
      lastTruncated = watch;
      errno = error;
      return;
    }
    // The access is repeated, and finds the previous handler.
    ::sigaction(signal, &before, nullptr);
    if (isSentByProcess) ::raise(signal);
  }

  static bool replaceWithZeros(std::uintptr_t address, std::uintptr_t end) {
    const std::uintptr_t page = address & ~(pageSize - 1);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives the address as a number
    void* const start = reinterpret_cast<void*>(page);
    return ::mmap(start, end - page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
           MAP_FAILED;
  }
};

namespace {

Error truncationError(const std::string& path) {
  return posixError(EIO, path + " was truncated by another program while it was read", path);
}

}  // namespace

MappingGuard::MappingGuard(Bytes mapping, const std::filesystem::path& path) {
  static std::once_flag once;
  std::call_once(once, MappingWatches::install);
  const std::lock_guard lock(MappingWatches::mutex);
  watch_ = MappingWatches::take();
  watch_->isInUse = true;
  watch_->path = path.string();
  const auto start = reinterpret_cast<std::uintptr_t>(mapping.data());
  watch_->end = start + mapping.size();
  watch_->start = start;
}

MappingGuard::MappingGuard(MappingGuard&& other) noexcept
    : watch_(std::exchange(other.watch_, nullptr)) {}

MappingGuard& MappingGuard::operator=(MappingGuard&& other) noexcept {
  std::swap(watch_, other.watch_);
  return *this;
}

MappingGuard::~MappingGuard() {
  if (!watch_) return;
  const std::lock_guard lock(MappingWatches::mutex);
  watch_->end = 0;
  watch_->start = 0;
  watch_->isInUse = false;
}

Result<> MappingGuard::check() const {
  if (watch_ && watch_->isTruncated) return truncationError(watch_->path);
  return {};
}

Result<> MappingGuard::checkAll() {
  const Watch* const watch = MappingWatches::lastTruncated;
  if (watch) return truncationError(watch->path);
  return {};
}

}  // namespace foundation

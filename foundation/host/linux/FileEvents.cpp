// File events through inotify(7). All watches of the process share one descriptor and one thread,
// which last as long as there are any watches.
#include "foundation/host/FileEvents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/base/Handle.h"

namespace foundation::host {
namespace {

constexpr std::uint32_t kFolderWrites = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t kFileWrites = IN_MODIFY;

/// The new thread takes none of the process's signals.
std::thread startWithSignalsBlocked(std::function<void()> body) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const struct Restore {
    const sigset_t& mask;
    ~Restore() { pthread_sigmask(SIG_SETMASK, &mask, nullptr); }
  } restore{before};
  return std::thread(std::move(body));
}

/// Reads the events of one inotify descriptor and passes them to the watches. The kernel keeps one
/// watch per inode, which all of ours on one folder share; it is removed with the last of them.
class EventReader {
 public:
  using Callback = std::function<void()>;

  /// The reader that all watches share; empty with errno set on failure.
  static std::shared_ptr<EventReader> shared() {
    static auto& mutex = *new std::mutex;
    static auto& current = *new std::weak_ptr<EventReader>;
    const std::lock_guard lock(mutex);
    if (auto reader = current.lock()) return reader;
    auto reader = make();
    current = reader;
    return reader;
  }

  EventReader(FileDescriptor events, FileDescriptor stop)
      : events_(std::move(events)), stop_(std::move(stop)) {}
  EventReader(const EventReader&) = delete;
  EventReader& operator=(const EventReader&) = delete;

  /// No watch is destroyed from a callback, so this never runs on the reading thread.
  ~EventReader() {
    ::eventfd_write(stop_.get(), 1);
    if (thread_.joinable()) thread_.join();
  }

  /// Returns the kernel's watch descriptor, or -1 with errno set.
  int add(const FileDescriptor& target, Callback callback, const void* owner) {
    struct stat details {};
    if (::fstat(target.get(), &details) != 0) return -1;
    const std::string path = "/proc/self/fd/" + std::to_string(target.get());
    const std::uint32_t events = S_ISDIR(details.st_mode) ? kFolderWrites : kFileWrites;
    const std::lock_guard lock(mutex_);
    const int watch = ::inotify_add_watch(events_.get(), path.c_str(), events);
    if (watch >= 0) listeners_.push_back({watch, owner, std::move(callback)});
    return watch;
  }

  void remove(int watch, const void* owner) {
    const std::lock_guard lock(mutex_);
    std::erase_if(listeners_, [&](const Listener& listener) { return listener.owner == owner; });
    const bool isShared = std::ranges::any_of(
        listeners_, [&](const Listener& listener) { return listener.watch == watch; });
    if (!isShared) ::inotify_rm_watch(events_.get(), watch);
  }

 private:
  struct Listener {
    int watch;
    const void* owner;
    Callback callback;
  };

  static std::shared_ptr<EventReader> make() {
    FileDescriptor events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!events) return nullptr;
    FileDescriptor stop(::eventfd(0, EFD_CLOEXEC));
    if (!stop) return nullptr;
    auto reader = std::make_shared<EventReader>(std::move(events), std::move(stop));
    try {
      reader->thread_ = startWithSignalsBlocked([raw = reader.get()] { raw->serve(); });
    } catch (const std::system_error& error) {
      errno = error.code().value();
      return nullptr;
    }
    return reader;
  }

  void serve() {
    std::array<pollfd, 2> ready{pollfd{events_.get(), POLLIN, 0}, pollfd{stop_.get(), POLLIN, 0}};
    for (;;) {
      if (::poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) return;
      if (ready[1].revents != 0) return;
      if (ready[0].revents != 0) readEvents();
    }
  }

  void readEvents() {
    alignas(inotify_event) std::array<char, 16384> buffer;
    const ssize_t size = ::read(events_.get(), buffer.data(), buffer.size());
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      if (event.mask & IN_Q_OVERFLOW) {
        tell([](const Listener&) { return true; });
      } else if (event.mask & (kFolderWrites | kFileWrites)) {
        tell([watch = event.wd](const Listener& listener) { return listener.watch == watch; });
      }
    }
  }

  /// Calls without the lock, so that a thread that adds or removes a watch may wait for a callback.
  template <class Predicate>
  void tell(Predicate isMeant) {
    std::vector<Callback> callbacks;
    {
      const std::lock_guard lock(mutex_);
      for (const Listener& listener : listeners_) {
        if (isMeant(listener)) callbacks.push_back(listener.callback);
      }
    }
    for (const Callback& callback : callbacks) callback();
  }

  FileDescriptor events_;
  FileDescriptor stop_;
  std::thread thread_;
  std::mutex mutex_;
  std::vector<Listener> listeners_;
};

class InotifyWatch final : public FileWatch {
 public:
  InotifyWatch(std::shared_ptr<EventReader> reader, FileDescriptor target)
      : reader_(std::move(reader)), target_(std::move(target)) {}
  ~InotifyWatch() override {
    if (watch_ >= 0) reader_->remove(watch_, this);
  }

  bool start(std::function<void()> onWrite) {
    watch_ = reader_->add(target_, std::move(onWrite), this);
    return watch_ >= 0;
  }

 private:
  std::shared_ptr<EventReader> reader_;
  FileDescriptor target_;
  int watch_ = -1;
};

}  // namespace

std::unique_ptr<FileWatch> watchWrites(const std::filesystem::path& path,
                                       std::function<void()> onWrite) {
  FileDescriptor target(::open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!target) return nullptr;
  auto reader = EventReader::shared();
  if (!reader) return nullptr;
  auto watch = std::make_unique<InotifyWatch>(std::move(reader), std::move(target));
  if (!watch->start(std::move(onWrite))) return nullptr;
  return watch;
}

}  // namespace foundation::host

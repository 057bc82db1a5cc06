#include "foundation/file/FileEventSource.h"

#include <mutex>
#include <utility>

#include "foundation/host/FileEvents.h"

namespace foundation {

/// A source has at most one piece of work on its queue, which looks for what to do when its turn
/// comes. So events merge, handlers never overlap on any kind of queue, and the cancel handler runs
/// last.
struct FileEventSource::State : std::enable_shared_from_this<FileEventSource::State> {
  State(DispatchQueue target, std::function<void()> write, std::function<void()> cancelled)
      : queue(std::move(target)), onWrite(std::move(write)), onCancel(std::move(cancelled)) {}

  void eventCame() {
    const std::lock_guard lock(mutex);
    if (isCancelled) return;
    eventWaits = true;
    schedule();
  }

  void startWatching(std::unique_ptr<host::FileWatch> made) {
    const std::lock_guard lock(mutex);
    watch = std::move(made);
  }

  void cancel() {
    std::unique_ptr<host::FileWatch> ended;
    const std::lock_guard lock(mutex);
    if (std::exchange(isCancelled, true)) return;
    ended = std::move(watch);
    schedule();
  }

 private:
  /// With the lock held.
  void schedule() {
    if (std::exchange(isScheduled, true)) return;
    queue.async([self = shared_from_this()] { self->run(); });
  }

  void run() {
    std::unique_lock lock(mutex);
    if (!isCancelled && std::exchange(eventWaits, false)) {
      lock.unlock();
      onWrite();
      lock.lock();
    }
    if (isCancelled) {
      lock.unlock();
      finish();
      return;
    }
    isScheduled = false;
    if (eventWaits) schedule();
  }

  /// The last piece of work. What the handlers own is destroyed here, on the target queue.
  void finish() {
    onWrite = nullptr;
    if (const auto last = std::exchange(onCancel, nullptr)) last();
  }

  std::mutex mutex;
  const DispatchQueue queue;
  std::function<void()> onWrite;
  std::function<void()> onCancel;
  std::unique_ptr<host::FileWatch> watch;
  bool eventWaits = false;
  bool isScheduled = false;
  bool isCancelled = false;
};

std::shared_ptr<FileEventSource> FileEventSource::watchWrites(const std::filesystem::path& path,
                                                              DispatchQueue queue,
                                                              std::function<void()> onWrite,
                                                              std::function<void()> onCancel) {
  auto state = std::make_shared<State>(std::move(queue), std::move(onWrite), std::move(onCancel));
  auto watch = host::watchWrites(path, [weak = std::weak_ptr(state)] {
    if (const auto alive = weak.lock()) alive->eventCame();
  });
  if (!watch) return nullptr;
  state->startWatching(std::move(watch));
  return std::shared_ptr<FileEventSource>(new FileEventSource(std::move(state)));
}

FileEventSource::~FileEventSource() { cancel(); }

void FileEventSource::cancel() { state_->cancel(); }

}  // namespace foundation

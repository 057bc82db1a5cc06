#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "foundation/queue/DispatchQueue.h"

namespace foundation {

/// Watches one file or folder for writes: entries created, removed or moved in a folder, or a
/// file's content changed.
///
/// Events that arrive while a handler runs merge: n writes give 1 to n calls. The item that was
/// opened stays the one watched, even if it is moved or its path is reused. Handlers run on the
/// target queue; none starts after `cancel`, except for the cancel handler, which runs last.
class FileEventSource {
 public:
  /// Empty when `path` cannot be opened or watched. `onWrite` may be called before this returns.
  static std::shared_ptr<FileEventSource> watchWrites(const std::filesystem::path& path,
                                                      DispatchQueue queue,
                                                      std::function<void()> onWrite,
                                                      std::function<void()> onCancel = {});

  /// Cancels.
  ~FileEventSource();
  /// Stops the watch and closes its descriptors; safe from any thread and from a handler.
  void cancel();

  struct State;

 private:
  explicit FileEventSource(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace foundation

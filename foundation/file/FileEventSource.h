#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "foundation/queue/DispatchQueue.h"

namespace foundation {

/// Watches one file or folder for writes: entries made, removed or moved in a folder, content
/// changed in a file.
///
/// Events that arrive while a handler runs merge: n writes give 1 to n calls. What was opened is
/// what is watched, even when the path is moved or made again. Handlers run on the target queue;
/// none starts after `cancel`, and the cancel handler runs last, there too.
class FileEventSource {
 public:
  /// Opens `path` for events only; empty when that fails or the source cannot be made. `onWrite`
  /// may be called as soon as this returns.
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

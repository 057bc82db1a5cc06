#pragma once

#include <filesystem>
#include <functional>
#include <memory>

/// The part of watching files that each host does in its own way (inotify, kqueue).
namespace foundation::host {

/// Watches as long as it lives. It must not be destroyed from its own callback.
class FileWatch {
 public:
  virtual ~FileWatch() = default;
};

/// Opens `path` for events only and calls `onWrite`, on a thread of the host's, after every write
/// to what was opened: entries made, removed or moved in a folder, content changed in a file. Some
/// calls may stand for several writes, or for none; one may still be running when the watch is
/// destroyed, none starts afterwards. Empty with errno set when the watch cannot be made.
std::unique_ptr<FileWatch> watchWrites(const std::filesystem::path& path,
                                       std::function<void()> onWrite);

}  // namespace foundation::host

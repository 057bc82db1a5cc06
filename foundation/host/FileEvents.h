#pragma once

#include <filesystem>
#include <functional>
#include <memory>

namespace foundation::host {

/// Watches while it lives. Must not be destroyed from its own callback.
class FileWatch {
 public:
  virtual ~FileWatch() = default;
};

/// Opens `path` and calls `onWrite`, on a thread of its own, after every write to the item: entries
/// created, removed or moved in a folder, or a file's content changed. One call may stand for
/// several writes, or for none. A call may still be running when the watch is destroyed; none
/// starts afterwards. Empty with errno set when the watch cannot be made.
std::unique_ptr<FileWatch> watchWrites(const std::filesystem::path& path,
                                       std::function<void()> onWrite);

}  // namespace foundation::host

#include <utility>

#include "foundation/FileManager.h"
#include "foundation/Path.h"
#include "preparation/QVTFileSystemUtils.h"

using foundation::FileEventSource;

std::shared_ptr<FileEventSource> QVTFileSystemUtils::createDispatchSourceObservePathChangeHandler(
    const std::string& path, std::function<void()> handler) {
  return FileEventSource::watchWrites(path, foundation::DispatchQueue::global(),
                                      std::move(handler));
}

std::shared_ptr<FileEventSource> QVTFileSystemUtils::createDispatchSourceFileAtPathIsAvailable(
    const std::string& filePath, std::function<void()> block) {
  return createDispatchSourceObservePathChangeHandler(
      foundation::deletingLastPathComponent(filePath), [filePath, block = std::move(block)] {
        if (foundation::FileManager::fileExistsAtPath(filePath)) block();
      });
}

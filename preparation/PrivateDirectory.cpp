#include "preparation/PrivateDirectory.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"

namespace FileManager = foundation::FileManager;
using foundation::Result;

namespace {

foundation::Error refusal(const std::string& path, int error, const std::string& why) {
  return foundation::makeError(foundation::kPOSIXErrorDomain, error,
                               "cannot use " + path + ": it " + why);
}

/// A missing folder, or a file in its place, is left to the function that makes folders.
Result<> checkFolder(const std::string& path) {
  struct stat details {};
  if (::lstat(path.c_str(), &details) != 0) return {};
  if (S_ISLNK(details.st_mode)) return refusal(path, ELOOP, "is a link");
  if (details.st_uid != ::geteuid()) {
    return refusal(path, EPERM, "belongs to user " + std::to_string(details.st_uid));
  }
  return {};
}

/// Checks every folder on the way from `outer`, which ends in a slash, to the path.
Result<> checkFoldersBelow(const std::string& outer, const std::string& path) {
  for (auto slash = outer.size(); slash < path.size(); ++slash) {
    slash = std::min(path.find('/', slash), path.size());
    auto checked = checkFolder(path.substr(0, slash));
    if (!checked) return checked;
  }
  return {};
}

}  // namespace

Result<> PrivateDirectory::make(const std::string& path) {
  const auto temporary = FileManager::temporaryDirectory();
  if (!temporary) return temporary.error();
  if (!path.starts_with(*temporary)) return FileManager::createDirectoryWithIntermediates(path);
  // Before, so that nothing is made behind a link; after, in case one was planted in between.
  if (auto checked = checkFoldersBelow(*temporary, path); !checked) return checked;
  const auto made = FileManager::createDirectoryWithIntermediates(path);
  return made ? checkFoldersBelow(*temporary, path) : made;
}

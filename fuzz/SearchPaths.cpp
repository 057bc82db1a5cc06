// Values of the framework-search-paths setting, in a made-up file system.
#include <algorithm>
#include <climits>

#include "fuzz/FuzzTarget.h"
#include "xcode/QVTEnvironment.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view value = fuzz::textOf(data, size);
  // Every path of even length exists, so that any mixture occurs.
  const QVTDirectoryQuestion isDirectory = [](const std::string& path) {
    fuzz::require(path.size() < PATH_MAX);
    return path.size() % 2 == 0;
  };
  const auto paths = QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
      value, "/work", isDirectory);
  std::size_t length = 0;
  for (const std::string& path : paths) length += path.size();
  fuzz::require(length <= size);
  return 0;
}

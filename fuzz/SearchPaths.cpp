// Values of the framework-search-paths setting, in a made-up file system.
#include <algorithm>
#include <climits>

#include "fuzz/FuzzTarget.h"
#include "xcode/QVTEnvironment.h"

void fuzz::readInput(foundation::Bytes input) {
  const std::string_view value = foundation::textOf(input);
  // Every path of even length exists, so that any mixture occurs.
  const QVTDirectoryQuestion isDirectory = [](const std::string& path) {
    fuzz::require(path.size() < PATH_MAX);
    return path.size() % 2 == 0;
  };
  const auto paths = QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
      value, "/work", isDirectory);
  std::size_t length = 0;
  for (const std::string& path : paths) length += path.size();
  fuzz::require(length <= input.size());
}

#pragma once

#include <string>

#include "tests/support/Test.h"

namespace test {

/// An Info.plist with these pairs of XML.
inline std::string plist(const std::string& pairs) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + pairs +
         "</dict></plist>\n";
}

inline std::string stringPair(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

/// The temporary directory of the code under test, for one scope.
class TemporaryDirectoryScope {
 public:
  [[nodiscard]] const std::filesystem::path& path() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment environment_{"TMPDIR", folder_.path().c_str()};
};

}  // namespace test

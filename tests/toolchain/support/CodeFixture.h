#pragma once

#include <filesystem>
#include <string>

#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace test {

/// A file that the linker has made, given these options of it.
inline std::string linked(const std::vector<std::string>& linkerOptions = {}) {
  const TemporaryFolder folder;
  linkImage(folder / "code", "arm64", linkerOptions);
  return contentsOf(folder / "code");
}

/// For arm64, once per test program.
inline const std::string& executableCode() {
  static const std::string code = linked();
  return code;
}
inline const std::string& libraryCode() {
  static const std::string code = linked({"-dylib"});
  return code;
}

/// A folder with Info.plist and executable, named and identified as given; "X.app" has executable
/// "X". Returns its path.
inline std::filesystem::path writeBundle(const std::filesystem::path& path,
                                         const std::string& identifier,
                                         const std::string& code = executableCode()) {
  const std::string name = path.stem();
  writeProgram(path / name, code);
  writePlist(path / "Info.plist",
             {{"CFBundleExecutable", name}, {"CFBundleIdentifier", identifier}});
  return path;
}

}  // namespace test

#pragma once

#include "tests/support/Test.h"

namespace test {

/// A `codesign` in PATH that does as it is told and records its runs. Whole runs have the shipped
/// one, whose `xcrun` and `codesign_allocate` are used here too.
class RecordedTools {
 public:
  RecordedTools() { answer("exit 0"); }

  /// What `codesign` does from now on, in shell.
  void answer(const std::string& script) const {
    writeProgram(codesign(), "#!/bin/sh\n{ tr '\\0' ' ' </proc/$$/environ; echo \"$*\"; } >>'" +
                                 (folder_ / "runs").string() + "'\n" + script);
  }
  /// The runs since the last call: each one's environment, then its arguments.
  [[nodiscard]] std::vector<std::string> takeRuns() const {
    const auto record = folder_.write("taken", "");
    if (fs::exists(folder_ / "runs")) fs::rename(folder_ / "runs", record);
    auto runs = foundation::split(contentsOf(record), '\n');
    runs.pop_back();
    return runs;
  }
  [[nodiscard]] std::string codesign() const { return folder_ / "codesign"; }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment path_{"PATH",
                          (folder_.path().string() + ":" SENDOFF_LIBEXEC ":/usr/bin:/bin").c_str()};
};

}  // namespace test

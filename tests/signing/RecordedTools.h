#pragma once

#include "tests/support/Test.h"

namespace test {

/// The shipped signing tools, in PATH; a script in front of `codesign` records its runs.
class RecordedTools {
 public:
  RecordedTools() { answer("exec \"" SENDOFF_LIBEXEC "/codesign\" \"$@\""); }

  /// What `codesign` does from now on, in shell.
  void answer(const std::string& script) const {
    writeProgram(codesign(), "#!/bin/sh\n{ tr '\\0' ' ' </proc/$$/environ; echo \"$*\"; } >>'" +
                                 (folder_ / "runs").string() + "'\n" + script);
  }
  /// Puts a script in front of `xcrun`, which finds the tools.
  void answerXcrun(const std::string& script) const {
    writeProgram(folder_ / "xcrun", "#!/bin/sh\n" + script);
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

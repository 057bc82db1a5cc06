#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace toolchain {

/// Where a developer tool is: the first executable file of that name in the folders of
/// `searchPath` (as PATH lists them; empty entries are passed over), `ownFolder` left out under
/// whatever name it stands there; then in `ownFolder` itself, so that a host's own tools win.
/// Absolute; absent when there is none, or when the name holds a slash.
std::optional<std::filesystem::path> findTool(std::string_view name, std::string_view searchPath,
                                              const std::filesystem::path& ownFolder);

/// What a run of the program prints and returns.
struct XcrunOutcome {
  int status = 0;
  std::string output;
  std::string errorOutput;
};

/// The program without its process: `--find NAME` (also `-f NAME`, `--find=NAME`) and `--help`.
/// Status 64 for a command line that is neither, 72 for a tool that is not there.
XcrunOutcome runXcrun(const std::vector<std::string>& arguments, std::string_view searchPath,
                      const std::filesystem::path& ownFolder);

}  // namespace toolchain

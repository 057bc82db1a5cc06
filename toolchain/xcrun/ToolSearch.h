#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace toolchain {

/// Where a developer tool is: the first executable file of that name in the folders of
/// `searchPath` (a PATH value; empty entries are ignored, and so is `ownFolder`, whatever path
/// leads to it), else the one in `ownFolder`, so that a host's own tools win. Absolute; absent when
/// there is none, or when the name contains a slash.
std::optional<std::filesystem::path> findTool(std::string_view name, std::string_view searchPath,
                                              const std::filesystem::path& ownFolder);

struct XcrunOutcome {
  int status = 0;
  std::string output;
  std::string errorOutput;
};

/// The program but for its output: `--find NAME` (also `-f NAME`, `--find=NAME`) and `--help`.
/// Status 64 for any other command line, 72 for a tool that is not found.
XcrunOutcome runXcrun(const std::vector<std::string>& arguments, std::string_view searchPath,
                      const std::filesystem::path& ownFolder);

}  // namespace toolchain

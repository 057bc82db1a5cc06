#include "toolchain/xcrun/ToolSearch.h"

#include <system_error>

#include <unistd.h>

#include "foundation/base/Text.h"

namespace toolchain {

namespace {

namespace fs = std::filesystem;

constexpr int kUsageStatus = 64;
constexpr int kNotFoundStatus = 72;
constexpr std::string_view kUsage =
    "usage: xcrun --find NAME\n"
    "Prints the path of the developer tool NAME: from PATH, else from xcrun's own folder.\n"
    "Status: 0 found, 72 not found, 64 wrong command line.\n";

bool isTool(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && ::access(path.c_str(), X_OK) == 0;
}

bool isSameFolder(const fs::path& a, const fs::path& b) {
  std::error_code failed;
  return fs::equivalent(a, b, failed) && !failed;
}

/// The tool's name on the command line; absent when the line is malformed.
std::optional<std::string> toolName(const std::vector<std::string>& arguments) {
  constexpr std::string_view kFindWithValue = "--find=";
  if (arguments.size() == 1 && arguments[0].starts_with(kFindWithValue)) {
    return arguments[0].substr(kFindWithValue.size());
  }
  const bool finds = arguments.size() == 2 &&
                     (arguments[0] == "--find" || arguments[0] == "-f" || arguments[0] == "-find");
  return finds ? std::optional(arguments[1]) : std::nullopt;
}

}  // namespace

std::optional<fs::path> findTool(std::string_view name, std::string_view searchPath,
                                 const fs::path& ownFolder) {
  if (name.empty() || name.find('/') != std::string_view::npos) return std::nullopt;
  for (const auto& entry : foundation::split(searchPath, ':')) {
    if (entry.empty() || isSameFolder(entry, ownFolder)) continue;
    const fs::path candidate = fs::path(entry) / name;
    if (isTool(candidate)) return fs::absolute(candidate);
  }
  const fs::path own = ownFolder / name;
  return isTool(own) ? std::optional(own) : std::nullopt;
}

XcrunOutcome runXcrun(const std::vector<std::string>& arguments, std::string_view searchPath,
                      const fs::path& ownFolder) {
  if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
    return {0, std::string(kUsage), ""};
  }
  const auto name = toolName(arguments);
  if (!name) return {kUsageStatus, "", std::string(kUsage)};
  if (const auto tool = findTool(*name, searchPath, ownFolder)) {
    return {0, tool->string() + "\n", ""};
  }
  return {kNotFoundStatus, "",
          "xcrun: error: unable to find utility \"" + foundation::escapingControlCharacters(*name) +
              "\", not a developer tool or in PATH\n"};
}

}  // namespace toolchain

#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "foundation/base/WriteAll.h"
#include "foundation/process/ProcessInfo.h"
#include "toolchain/common/ToolMain.h"
#include "toolchain/xcrun/ToolSearch.h"

namespace {

int run(const std::vector<std::string>& arguments) {
  const std::filesystem::path self = foundation::ProcessInfo::executablePath();
  const std::string path = foundation::ProcessInfo::environmentValue("PATH").value_or("");
  const auto outcome = toolchain::runXcrun(arguments, path, self.parent_path());
  foundation::writeAll(STDERR_FILENO, outcome.errorOutput);
  const int error = foundation::writeAll(STDOUT_FILENO, outcome.output);
  return error == 0 ? outcome.status : 1;
}

}  // namespace

int main(int argc, char** argv) { return toolchain::toolMain("xcrun", argc, argv, run); }

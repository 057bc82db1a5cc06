#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/process/ProcessInfo.h"
#include "toolchain/common/ToolMain.h"
#include "toolchain/xcrun/ToolSearch.h"

namespace {

bool write(std::FILE* stream, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
         std::fflush(stream) == 0;
}

int run(const std::vector<std::string>& arguments) {
  const std::filesystem::path self = foundation::ProcessInfo::executablePath();
  const std::string path = foundation::ProcessInfo::environmentValue("PATH").value_or("");
  const auto outcome = toolchain::runXcrun(arguments, path, self.parent_path());
  write(stderr, outcome.errorOutput);
  return write(stdout, outcome.output) ? outcome.status : 1;
}

}  // namespace

int main(int argc, char** argv) { return toolchain::toolMain("xcrun", argc, argv, run); }

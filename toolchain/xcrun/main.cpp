#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/process/ProcessInfo.h"
#include "toolchain/xcrun/ToolSearch.h"

namespace {

bool write(std::FILE* stream, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
         std::fflush(stream) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const std::filesystem::path self = foundation::ProcessInfo::executablePath();
  const std::string path = foundation::ProcessInfo::environmentValue("PATH").value_or("");
  const auto outcome = toolchain::runXcrun(arguments, path, self.parent_path());
  write(stderr, outcome.errorOutput);
  if (!write(stdout, outcome.output)) return 1;
  return outcome.status;
}

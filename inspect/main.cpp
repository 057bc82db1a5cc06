#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "inspect/Program.h"
#include "preparation/SigningToolPath.h"

namespace {

/// False when the reader is gone or the disk is full.
bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  // So that `check` finds the tools that a hand-off would use.
  appendSigningToolsToPath();
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  const auto outcome = inspect::runProgram(words, inspect::TextStyle::ofStandardOutput());
  writeAll(STDERR_FILENO, outcome.standardError);
  if (!writeAll(STDOUT_FILENO, outcome.standardOutput) && outcome.status == 0) return 1;
  return outcome.status;
}

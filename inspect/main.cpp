#include <csignal>
#include <string>
#include <vector>

#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/Interruption.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/queue/RunLoop.h"
#include "inspect/Program.h"
#include "startup/SigningToolPath.h"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  foundation::keepSecretsInMemory();
  // So that `check` finds the tools that a hand-off would use.
  appendSigningToolsToPath();
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  // An interruption removes an inflated .ipa and ends `unzip`.
  foundation::InterruptionWatch watch({.wake = [] { foundation::RunLoop::main().perform([] {}); },
                                       .patienceWithRun = std::chrono::seconds(1)});
  int status = 0;
  try {
    status =
        inspect::writeOutcome(inspect::runProgram(words, inspect::TextStyle::ofStandardOutput()));
  } catch (const foundation::Interrupted&) {
    // `watch` has the signal.
  }
  if (const auto signal = watch.finish()) {
    foundation::FileManager::removeSubstituteIfEmpty();
    foundation::endBySignal(*signal);
  }
  return status;
}

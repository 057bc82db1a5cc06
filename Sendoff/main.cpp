#include <csignal>
#include <exception>

#include "Sendoff/CommandLine.h"
#include "Sendoff/InterruptibleRun.h"
#include "console/QVTCLUtilLog.h"
#include "foundation/base/Text.h"
#include "foundation/process/ProcessInfo.h"
#include "startup/SigningToolPath.h"

namespace {

int run(int argc, char** argv) {
  try {
    appendSigningToolsToPath();
    return commandLineMain(argc, argv);
  } catch (const std::exception& exception) {
    QVTCLUtilLog("Unexpected error: %@", foundation::escapingControlCharacters(exception.what()));
    return failure();
  }
}

}  // namespace

int main(int argc, char** argv) {
  foundation::openMissingStandardDescriptors();
  foundation::keepSecretsInMemory();
  foundation::reserveDescriptorForProcessRecords();
  // The run goes on when the console's reader goes away (`sendoff … | head`).
  std::signal(SIGPIPE, SIG_IGN);
  // Reaching the file-size limit is an error like a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  return runInterruptibly([&] { return run(argc, argv); });
}

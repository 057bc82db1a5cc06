#include "foundation/process/ProcessInfo.h"
#include "toolchain/codesign/Program.h"
#include "toolchain/common/ToolMain.h"

int main(int argc, char** argv) {
  foundation::openMissingStandardDescriptors();
  foundation::keepSecretsInMemory();
  return toolchain::toolMain("codesign", argc, argv, toolchain::codesign::run);
}

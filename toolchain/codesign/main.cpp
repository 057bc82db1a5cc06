#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "foundation/base/Text.h"
#include "foundation/process/ProcessInfo.h"
#include "toolchain/codesign/Program.h"

int main(int argc, char** argv) {
  toolchain::codesign::prepareStreams();
  foundation::keepSecretsInMemory();
  try {
    return toolchain::codesign::run(
        std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "codesign: %s\n",
                 foundation::escapingControlCharacters(exception.what()).c_str());
    return 1;
  }
}

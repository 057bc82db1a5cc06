#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "foundation/base/Text.h"
#include "toolchain/codesign_allocate/Program.h"

int main(int argc, char** argv) {
  try {
    return toolchain::codesign_allocate::run(
        std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "codesign_allocate: %s\n",
                 foundation::escapingControlCharacters(exception.what()).c_str());
    return 1;
  }
}

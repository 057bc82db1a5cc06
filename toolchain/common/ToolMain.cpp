#include "toolchain/common/ToolMain.h"

#include <csignal>
#include <cstdio>
#include <exception>

#include "foundation/base/Text.h"

namespace toolchain {

int toolMain(const char* name, int argc, char** argv,
             int (*run)(const std::vector<std::string>& arguments)) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s: %s\n", name,
                 foundation::escapingControlCharacters(exception.what()).c_str());
    return 1;
  }
}

}  // namespace toolchain

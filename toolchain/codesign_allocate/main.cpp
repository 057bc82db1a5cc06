#include "toolchain/codesign_allocate/Program.h"
#include "toolchain/common/ToolMain.h"

int main(int argc, char** argv) {
  return toolchain::toolMain("codesign_allocate", argc, argv, toolchain::codesign_allocate::run);
}

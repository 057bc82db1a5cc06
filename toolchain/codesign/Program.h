#pragma once

#include <string>
#include <vector>

namespace toolchain::codesign {

/// The whole program: reads the command line, works on each operand in turn, prints. Returns the
/// first status that is not 0.
int run(const std::vector<std::string>& arguments);

}  // namespace toolchain::codesign

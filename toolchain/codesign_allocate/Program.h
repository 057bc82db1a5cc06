#pragma once

#include <string>
#include <vector>

namespace toolchain::codesign_allocate {

/// The whole program: reads the command line, writes the file, prints errors to standard error.
/// Returns 0 when done, 1 when it failed, 2 for a wrong command line.
int run(const std::vector<std::string>& arguments);

}  // namespace toolchain::codesign_allocate

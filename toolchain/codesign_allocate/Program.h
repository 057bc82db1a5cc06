#pragma once

#include <string>
#include <vector>

namespace toolchain::codesign_allocate {

/// The program without its process: reads the command line, writes the file, prints what went
/// wrong to standard error. The exit status: 0 done, 1 failed, 2 wrong command line.
int run(const std::vector<std::string>& arguments);

}  // namespace toolchain::codesign_allocate

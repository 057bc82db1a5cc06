#pragma once

#include <string>
#include <vector>

namespace toolchain::codesign {

/// Makes a closed standard stream harmless and turns the death by a reader that went away into a
/// failing write. To be called first.
void prepareStreams();

/// The program without its process: reads the command line, works on each operand in turn, prints.
/// The first status that is not 0 is returned.
int run(const std::vector<std::string>& arguments);

}  // namespace toolchain::codesign

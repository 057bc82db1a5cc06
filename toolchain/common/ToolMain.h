#pragma once

#include <string>
#include <vector>

namespace toolchain {

/// The part of `main` that all signing tools share: `run` gets the arguments after the program's
/// name, and its result is the exit status. A reader that goes away makes writes fail instead of
/// ending the program; an exception is printed as "NAME: TEXT" and gives status 1.
int toolMain(const char* name, int argc, char** argv,
             int (*run)(const std::vector<std::string>& arguments));

}  // namespace toolchain

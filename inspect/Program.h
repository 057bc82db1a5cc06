#pragma once

#include <string>
#include <vector>

#include "inspect/TextOutput.h"

namespace inspect {

/// What one run prints, and its exit status: 0 done, 1 something could not be read (or a check
/// found something that would fail), 2 wrong usage, 3 a check found warnings only.
struct Outcome {
  std::string standardOutput;
  std::string standardError;
  int status = 0;
};

/// Runs the program on the words behind its name. Every failure is one line of standard error;
/// nothing is thrown but `foundation::Interrupted`. Only `archives --watch` writes by itself, as
/// long as it runs.
Outcome runProgram(const std::vector<std::string>& words, const TextStyle& style);

}  // namespace inspect

#pragma once

#include <string>
#include <vector>

#include "inspect/TextOutput.h"

namespace inspect {

/// What a run prints, and its exit status: 0 done, 1 unreadable input (or a check found something
/// that would fail), 2 wrong usage, 3 a check found only warnings.
struct Outcome {
  std::string standardOutput;
  std::string standardError;
  int status = 0;
};

/// Runs the program with the arguments after its name. Every failure is a line of standard error;
/// throws only `foundation::Interrupted`. Only `archives --watch` prints while it runs.
Outcome runProgram(const std::vector<std::string>& words, const TextStyle& style);

/// Writes what a run prints and returns its exit status, but never 0 when standard output fails.
/// The failure is written to standard error unless the reader is gone.
int writeOutcome(const Outcome& outcome);

}  // namespace inspect

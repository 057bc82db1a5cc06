#pragma once

#include "inspect/Program.h"

namespace inspect {

/// Writes what a run prints. Returns its exit status, or 1 where standard output did not take all
/// of a good answer: with a line of standard error, but for a reader that has gone away.
int writeOutcome(const Outcome& outcome);

}  // namespace inspect

#pragma once

#include "inspect/Program.h"

namespace inspect {

/// Writes what a run prints and returns its exit status, but never 0 when standard output fails.
/// The failure is written to standard error unless the reader is gone.
int writeOutcome(const Outcome& outcome);

}  // namespace inspect

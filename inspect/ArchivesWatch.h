#pragma once

#include <string>

namespace inspect {

struct WatchOptions {
  /// One JSON document per line: {"event": …, "path": …}.
  bool asJSON = false;
};

/// Prints a line to standard output for every notification of a new archive, and whenever the
/// location appears or disappears. Runs the main run loop; ends only by throwing
/// `foundation::Interrupted`, or with exit status 1 when standard output fails.
[[noreturn]] void watchArchives(const std::string& location, const WatchOptions& options);

}  // namespace inspect

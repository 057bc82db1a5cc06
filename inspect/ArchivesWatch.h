#pragma once

#include <string>

namespace inspect {

struct WatchOptions {
  /// One JSON document a line: {"event": …, "path": …}.
  bool asJSON = false;
};

/// Prints one line to standard output for every notification that an archive has appeared, until
/// the process is interrupted. Where the location does not exist, or no longer, it says so and
/// waits for it; a location that was deleted and made again is watched by a new monitor. Runs the
/// main run loop.
[[noreturn]] void watchArchives(const std::string& location, const WatchOptions& options);

}  // namespace inspect

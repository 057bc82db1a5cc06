#pragma once

#include <string>
#include <vector>

/// Prints the banner, checks options, API key and build secret, sets `debugMode`, and starts the
/// run sequence. Returns 0 when the upload was accepted, else 1 after printing why.
///
/// A `foundation::Exception` passes through to the caller; the run's temporary files are removed.
int commandLineMain(int argc, const char* const* argv);

/// Returns 1, the exit status of a failed run. Inside the process tree of "xcodebuild", but not of
/// "Xcode", it first sends SIGINT to the parent's parent process, so that a command-line build
/// fails, or to its own process group when that process is unknown. This program ignores the
/// signal.
int failure();

/// Removes every space (U+0020) from each string; tabs and newlines stay.
std::vector<std::string> stripWhitespaceFromStrings(const std::vector<std::string>& strings);

#pragma once

#include <string>
#include <vector>

/// The program from its banner to its exit status: prints the banner, checks options, API key and
/// build secret, chooses the base URLs and hands over to the run sequence. Sets `debugMode`.
/// Returns 0 when the upload was accepted, else 1; every failure has printed its line by then.
///
/// A run that ends before the hand-over leaves no temporary file. A `foundation::Exception` passes
/// through to the caller, the run's temporary files removed on its way.
int commandLineMain(int argc, const char* const* argv);

/// Ends a failed run: returns the exit status 1. Inside the process tree of "xcodebuild", but not
/// of "Xcode", it first interrupts (SIGINT) the parent of this program's parent, so that a build on
/// the command line fails. When that process cannot be looked up the signal goes to this program's
/// own process group; for this program it is no interruption.
int failure();

/// The strings, in order, without any space (U+0020), wherever it stands; tabs and newlines stay.
std::vector<std::string> stripWhitespaceFromStrings(const std::vector<std::string>& strings);

#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The settings of a run, from the command line.
struct RunSettings {
  std::string apiKey = {};
  std::string buildSecret = {};
  /// Base URLs. A malformed one fails the first call that needs it.
  std::string apiEndpoint = {};
  std::string uploadEndpoint = {};
  /// Whether testers are notified of the build.
  bool notifications = true;
  /// Absent for the archive that the environment names.
  std::optional<std::string> ipaPath = {};
  std::optional<std::string> notesPath = {};
  /// Comma-separated.
  std::optional<std::string> emails = {};
  std::optional<std::string> groupAliases = {};
};

/// Only cleared at the start of a run; the run's app is in its `QVTAppInfo`.
extern std::optional<std::string> pathToUnzippedApp;

/// The hint for an app that the service does not know.
std::string validationHint(const std::optional<std::string>& bundleIdentifier,
                           std::string_view settingsPage);

/// Prepares the app, then validates it with the service, adds notes and testers, and uploads it.
/// The first step that fails prints a summary line and ends the run through `failure()`. Returns
/// the exit status. The run's temporary files are removed on return and on an exception.
int runSequence(const RunSettings& settings);

#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the command line says about a run.
struct RunSettings {
  std::string apiKey = {};
  std::string buildSecret = {};
  /// Base URLs, as texts: one that is no URL fails the first call that needs it.
  std::string apiEndpoint = {};
  std::string uploadEndpoint = {};
  /// Whether testers are told of the new build.
  bool notifications = true;
  /// Absent: the archive that the environment names.
  std::optional<std::string> ipaPath = {};
  std::optional<std::string> notesPath = {};
  /// Comma-separated.
  std::optional<std::string> emails = {};
  std::optional<std::string> groupAliases = {};
};

/// Cleared at the start of a run. The run's app is in its `QVTAppInfo`.
extern std::optional<std::string> pathToUnzippedApp;

/// What to tell a user whose app the service does not know; the page's address is shown as is.
std::string validationHint(const std::optional<std::string>& bundleIdentifier,
                           std::string_view settingsPage);

/// Prepares the app and runs the service calls: validation, notes (where there are any), testers,
/// upload. The first step that fails prints one summary line and ends the run through `failure()`.
/// Returns the exit status. The temporary files of the run are removed before it returns, and when
/// an exception passes.
int runSequence(const RunSettings& settings);

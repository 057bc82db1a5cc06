#include "Sendoff/RunSequence.h"

#include <vector>

#include "Sendoff/AppFacts.h"
#include "Sendoff/CommandLine.h"
#include "Sendoff/DistributionUpload.h"
#include "Sendoff/QVTAppInfo.h"
#include "Sendoff/ReleaseCommands.h"
#include "Sendoff/ServiceAddresses.h"
#include "console/QVTCLUtilLog.h"
#include "foundation/base/Format.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/base/URL.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/ProcessInfo.h"
#include "preparation/TemporaryItems.h"

namespace FileManager = foundation::FileManager;

std::optional<std::string> pathToUnzippedApp;

namespace {

/// The result of `QVTAppInfo`; absent when there was no app to prepare and the reason was printed.
using Prepared = std::optional<int>;

/// The platform's code for a file that is not in the expected encoding.
constexpr long kUnsuitableEncoding = 261;

Prepared prepareIPA(QVTAppInfo& appInfo, const std::string& path) {
  debugLog("Path to IPA manually provided: %@", foundation::escapingControlCharacters(path));
  if (!FileManager::fileExistsAtPath(path)) {
    QVTCLUtilLog("No file found at path %@", foundation::escapingControlCharacters(path));
    return std::nullopt;
  }
  if (FileManager::isDirectoryAtPath(path)) {
    QVTCLUtilLog(
        "Path must be to an .ipa file. To create an .ipa distribute an archive (ad-hoc) using "
        "Xcode.");
    return std::nullopt;
  }
  return appInfo.prepBinaryWithIPAPath(path);
}

Prepared prepareArchive(QVTAppInfo& appInfo) {
  debugLog("Path to IPA expected in environment");
  const auto products = foundation::ProcessInfo::environmentValue("ARCHIVE_PRODUCTS_PATH");
  if (!products) {
    QVTCLUtilLog(
        "No archive path found in environment. Either use sendoff binary in \"After "
        "Archive\" Xcode build phase or manually provide an IPA with \"-ipaPath\"");
    return std::nullopt;
  }
  // The variable names the Products folder inside the archive.
  return appInfo.prepBinaryWithArchivePath(foundation::deletingLastPathComponent(*products));
}

bool validate(const QVTAppInfo& appInfo) {
  if (releaseValidation(appInfo)) return true;
  QVTCLUtilLog("%@", validationHint(bundleIdentifierOf(appInfo), sendoff::kSettingsPageURL));
  return false;
}

foundation::Result<std::string> textOfFile(const std::string& path) {
  const auto content = FileManager::contentsOfFileOrPipe(path);
  if (!content) return content.error();
  if (auto text = foundation::stringFromUTF8(content->bytes())) return *std::move(text);
  return foundation::makeError(foundation::kCocoaErrorDomain, kUnsuitableEncoding,
                               "The file is not UTF-8 text.");
}

bool addNotes(const QVTAppInfo& appInfo, const std::optional<std::string>& path) {
  if (!path) return true;
  const auto notes = textOfFile(*path);
  if (!notes) {
    QVTCLUtilLog("Could not read release notes file at path %@, error: %@",
                 foundation::escapingControlCharacters(*path),
                 foundation::escapingControlCharacters(notes.error().localizedDescription()));
    return false;
  }
  if (addReleaseNotes(appInfo, *notes)) return true;
  QVTCLUtilLog("Failed to add notes to the release");
  return false;
}

/// The pieces of a comma-separated setting, without spaces; empty pieces are kept.
std::vector<std::string> list(const std::optional<std::string>& setting) {
  if (!setting) return {};
  return stripWhitespaceFromStrings(foundation::split(*setting, ','));
}

bool enableTesters(const QVTAppInfo& appInfo, const RunSettings& settings) {
  if (addTesters(appInfo, list(settings.emails), list(settings.groupAliases))) return true;
  QVTCLUtilLog("Failed to add testers/groups to the release");
  return false;
}

/// The identifier becomes a component of each request's path.
bool checkIdentifier(const QVTAppInfo& appInfo) {
  const auto identifier = bundleIdentifierOf(appInfo);
  if (!identifier || foundation::isPlainPathComponent(*identifier)) return true;
  QVTCLUtilLog("The bundle identifier %@ cannot be part of a request to the service",
               foundation::escapingControlCharacters(identifier));
  return false;
}

/// The service calls before the upload; false after one has failed and printed its line.
bool announce(const QVTAppInfo& appInfo, const RunSettings& settings) {
  return checkIdentifier(appInfo) && validate(appInfo) && addNotes(appInfo, settings.notesPath) &&
         enableTesters(appInfo, settings);
}

/// The summary line of a failed run, empty when the step that failed has printed its own; absent
/// after success.
std::optional<std::string_view> firstFailure(const RunSettings& settings) {
  QVTAppInfo appInfo(settings.apiKey, settings.buildSecret, settings.apiEndpoint,
                     settings.uploadEndpoint);
  const Prepared prepared =
      settings.ipaPath ? prepareIPA(appInfo, *settings.ipaPath) : prepareArchive(appInfo);
  if (!prepared) return "";
  if (*prepared != 0) return "Failed to prepare the binary for release";
  if (!announce(appInfo, settings)) return "";
  if (!uploadRelease(appInfo, settings.notifications)) return "Failed to upload binary";
  return std::nullopt;
}

}  // namespace

std::string validationHint(const std::optional<std::string>& bundleIdentifier,
                           std::string_view settingsPage) {
  return foundation::format(
      "Does this app belong to this org?\n We couldn't validate app with bundle ID %@ in "
      "the selected organization, so make sure you've first added your app through the "
      "Quorvantile app.\n You can check that your API key and build secret are correct by "
      "going here: %@\n Then select the org and click on API key or build secret underneath the "
      "org name.",
      foundation::escapingControlCharacters(bundleIdentifier), settingsPage);
}

int runSequence(const RunSettings& settings) {
  pathToUnzippedApp.reset();
  TemporaryItems::removeLeftovers();
  // On return the app's temporary files are gone. `failure()` may end the process.
  const auto summary = firstFailure(settings);
  if (!summary) return 0;
  if (!summary->empty()) QVTCLUtilLog(*summary);
  return failure();
}

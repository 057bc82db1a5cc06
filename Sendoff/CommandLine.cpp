#include "Sendoff/CommandLine.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <optional>
#include <string_view>

#include <unistd.h>

#include "Sendoff/ProcessCheck.h"
#include "Sendoff/RunSequence.h"
#include "Sendoff/ServiceAddresses.h"
#include "console/QVTCLUtilLog.h"
#include "foundation/app/Bundle.h"
#include "foundation/app/UserDefaults.h"
#include "foundation/base/Text.h"
#include "foundation/process/Interruption.h"
#include "foundation/process/ProcessInfo.h"
#include "preparation/TemporaryItems.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr std::array<std::string_view, 8> kKnownOptions = {"-ipaPath",
                                                           "-emails",
                                                           "-help",
                                                           "-groupAliases",
                                                           "-notesPath",
                                                           "-debug",
                                                           "-QuorvantileAPIEndpoint",
                                                           "-notifications"};

constexpr std::string_view kUsage =
    "Companion to the Quorvantile Mac App for submitting iOS builds for Beta Testing.\n"
    "     Usage: \n"
    "        sendoff  API_KEY BUILD_SECRET        default options for upload after archive, with "
    "ipa path in environment \n"
    "         additional options:\n"
    "         -help                          display this message\n"
    "         -ipaPath           [path to IPA]\n"
    "         -emails            [tester email address],[email]\n"
    "         -groupAliases      [group build server alias],[group]\n"
    "         -notesPath         [release notes]\n"
    "         -notifications     YES|NO\n"
    "         -debug             YES|NO";

constexpr std::size_t kKeyLength = 40;

void printBanner() {
  const foundation::Bundle& tool = foundation::Bundle::mainBundle();
  QVTCLUtilLog("Quorvantile.framework/sendoff %@ (%@)",
               tool.objectForInfoDictionaryKey("CFBundleShortVersionString"),
               tool.objectForInfoDictionaryKey("CFBundleVersion"));
}

/// The first element, including the program's name, that begins with "-" but is not an option.
const std::string* firstUnknownOption(const Arguments& arguments) {
  const auto unknown = std::ranges::find_if(arguments, [](const std::string& argument) {
    return argument.starts_with('-') &&
           std::ranges::find(kKnownOptions, argument) == kKnownOptions.end();
  });
  return unknown == arguments.end() ? nullptr : &*unknown;
}

bool isHexadecimal(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return foundation::hexDigit(c) >= 0; });
}

/// Prints `complaint` with the argument unless it is valid; one that is not UTF-8 shows as absent.
bool check(bool isValid, std::string_view complaint, const std::string& argument) {
  if (isValid) return true;
  QVTCLUtilLog(complaint, foundation::escapingControlCharacters(
                              foundation::stringFromUTF8(foundation::bytesOf(argument))));
  return false;
}

std::optional<std::string> setting(std::string_view key) {
  return foundation::UserDefaults::standardUserDefaults().stringForKey(key);
}

bool flag(std::string_view key, bool fallback) {
  const std::optional<std::string> value = setting(key);
  return value ? foundation::boolValue(*value) : fallback;
}

/// Everything but key and secret.
RunSettings readSettings() {
  const std::optional<std::string> endpoint = setting("QuorvantileAPIEndpoint");
  return {.apiEndpoint = endpoint.value_or(sendoff::kAPIBaseURL),
          .uploadEndpoint = endpoint.value_or(sendoff::kUploadBaseURL),
          .notifications = flag("notifications", true),
          .ipaPath = setting("ipaPath"),
          .notesPath = setting("notesPath"),
          .emails = setting("emails"),
          .groupAliases = setting("groupAliases")};
}

/// 0 when it is unknown.
pid_t parentOfParent() {
  const auto parent = foundation::processRecord(::getppid());
  return parent ? parent->parentProcessIdentifier : 0;
}

}  // namespace

int commandLineMain(int argc, const char* const* argv) {
  const Arguments arguments(argv, argv + argc);
  printBanner();
  if (const std::string* const unknown = firstUnknownOption(arguments)) {
    QVTCLUtilLog("Invalid argument provided, %@", foundation::escapingControlCharacters(*unknown));
    QVTCLUtilLog(kUsage);
    return 1;
  }

  foundation::UserDefaults::standardUserDefaults().setArguments(arguments);
  RunSettings settings = readSettings();
  if (flag("debug", false)) debugMode = true;

  if (arguments.size() < 3) {
    QVTCLUtilLog(kUsage);
    return failure();
  }
  settings.apiKey = arguments[1];
  settings.buildSecret = arguments[2];
  // The service alone checks the length of the secret.
  if (!check(isHexadecimal(settings.apiKey) && settings.apiKey.size() == kKeyLength,
             "First argument must be API Key, not %@", settings.apiKey) ||
      !check(isHexadecimal(settings.buildSecret), "Second argument must be build secret, not %@",
             settings.buildSecret)) {
    return failure();
  }
  return runSequence(settings);
}

int failure() {
  const bool insideXcode = isProcessNameInHierarchy("Xcode");
  const bool insideBuild = isProcessNameInHierarchy("xcodebuild");
  if (insideBuild && !insideXcode) {
    const pid_t build = parentOfParent();
    // The signal may reach this program, too: from the build or through its own process group.
    foundation::ignoreInterruptionsFromHere();
    // The build may kill this process when it ends.
    TemporaryItems::releaseAll();
    ::kill(build, SIGINT);
  }
  return 1;
}

std::vector<std::string> stripWhitespaceFromStrings(const std::vector<std::string>& strings) {
  std::vector<std::string> stripped = strings;
  for (std::string& text : stripped) std::erase(text, ' ');
  return stripped;
}

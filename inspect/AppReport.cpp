#include <chrono>

#include "inspect/AppIdentity.h"
#include "inspect/AppSource.h"
#include "inspect/Commands.h"
#include "inspect/ForeignApp.h"
#include "inspect/HandOffCheck.h"
#include "inspect/MachOReport.h"
#include "inspect/ProfileReport.h"
#include "signing/QVTProvisioningProfile.h"
#include "signing/SigningCertificate.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

foundation::Date currentTime() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

Value describeExecutable(const foundation::Bundle& bundle) {
  const auto path = bundle.executablePath();
  if (!path) return {};
  const auto binary = openBinary(*path);
  return binary ? describeBinary(**binary) : Value();
}

Value describeResource(const QVTCodeSignedResource& resource, const QVTProvisioningProfile* profile,
                       const std::optional<std::string>& keychain) {
  Dictionary document = describeIdentity(resource);
  document["macho"] = describeExecutable(*resource.bundle());
  if (profile)
    document["profile"] = describeProfile(*profile, ProfileSurroundings::current(keychain));
  document.try_emplace("profile");
  return document;
}

void showApp(const Value& document, bool detailed, TextOutput& text) {
  text.fields(fieldsOf(document, {"path", "bundleIdentifier", "displayVersion", "buildVersion",
                                  "creationDate", "provisioningProfilePath"}));
  text.heading("macho");
  if (const Value* binary = document.find("macho"); binary->dictionary()) {
    showBinary(*binary, {.withDylibs = detailed}, text);
  } else {
    text.line("no executable that can be read", TextOutput::Tone::bad);
  }
  text.heading("profile");
  if (const Value* profile = document.find("profile"); profile->dictionary()) {
    showProfile(*profile, {.withPeople = detailed}, text);
  } else {
    text.line("no provisioning profile that can be read", TextOutput::Tone::bad);
  }
}

std::string_view severityName(Finding::Severity severity) {
  return severity == Finding::Severity::failure ? "failure" : "warning";
}

int statusOf(const Findings& findings) {
  int status = 0;
  for (const auto& finding : findings) {
    if (finding.severity == Finding::Severity::failure) return 1;
    status = 3;
  }
  return status;
}

void showFindings(const Findings& findings, TextOutput& text) {
  if (findings.empty())
    text.line("Nothing found that would stop this hand-off.", TextOutput::Tone::good);
  for (const auto& finding : findings) {
    const bool isFailure = finding.severity == Finding::Severity::failure;
    text.line(std::string(severityName(finding.severity)) + ": " + finding.problem + ": " +
                  finding.advice,
              isFailure ? TextOutput::Tone::bad : TextOutput::Tone::warning);
  }
}

Report reportOf(const Findings& findings) {
  foundation::Array entries;
  for (const auto& finding : findings) {
    entries.push_back(Dictionary{{"severity", severityName(finding.severity)},
                                 {"problem", finding.problem},
                                 {"advice", finding.advice}});
  }
  return {Dictionary{{"findings", std::move(entries)}},
          [findings](const Value&, TextOutput& text) { showFindings(findings, text); },
          statusOf(findings)};
}

}  // namespace

foundation::Result<Report> reportApp(const Arguments& arguments) {
  const auto source = AppSource::open(arguments.operands()[0]);
  if (!source) return source.error();
  const auto keychain = arguments.value("--keychain");
  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(
      source->resource().usableProvisioningProfilePath(), keychain);
  const bool detailed = arguments.has("-v");
  return Report{
      describeResource(source->resource(), profile.get(), keychain),
      [detailed](const Value& document, TextOutput& text) { showApp(document, detailed, text); }};
}

foundation::Result<Report> reportHandOffCheck(const Arguments& arguments) {
  const std::string& path = arguments.operands()[0];
  if (const auto foreign = foreignInput(path)) return reportOf({*foreign});
  const auto source = AppSource::open(path);
  if (!source) return source.error();
  // Without the option, the keychain that a run would use.
  const auto named = arguments.value("--keychain");
  const auto keychain = named ? named : signingKeychain();
  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(
      source->resource().usableProvisioningProfilePath(), keychain);
  return reportOf(checkHandOff({.resource = source->resource(),
                                .profile = profile.get(),
                                .keychainPath = keychain,
                                .symbolsPath = arguments.value("--dsym"),
                                .now = currentTime()}));
}

}  // namespace inspect

#include "foundation/base/Text.h"
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

Value describeExecutable(const foundation::Bundle& bundle) {
  const auto path = bundle.executablePath();
  if (!path) return {};
  const auto binary = openBinary(*path);
  return binary ? describeBinary(**binary) : Value();
}

Value describeResource(const QVTCodeSignedResource& resource,
                       const std::optional<std::string>& keychain) {
  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(
      resource.usableProvisioningProfilePath(), keychain);
  Dictionary document = describeIdentity(resource);
  document["macho"] = describeExecutable(*resource.bundle());
  document["profile"] =
      profile ? describeProfile(*profile, ProfileSurroundings::current(keychain)) : Value();
  return document;
}

void showApp(const Value& document, TextOutput& text) {
  text.fields(fieldsOf(document, {"path", "bundleIdentifier", "displayVersion", "buildVersion",
                                  "creationDate", "provisioningProfilePath"}));
  text.heading("macho");
  if (const Value* binary = document.find("macho"); binary->dictionary()) {
    showBinary(*binary, text);
  } else {
    text.line("no executable that can be read", TextOutput::Tone::bad);
  }
  text.heading("profile");
  if (const Value* profile = document.find("profile"); profile->dictionary()) {
    showProfile(*profile, text);
  } else {
    text.line("no provisioning profile that can be read", TextOutput::Tone::bad);
  }
}

void showFindings(const Value& document, TextOutput& text) {
  const auto& findings = entriesAt(document, "findings");
  if (findings.empty())
    text.line("Nothing found that would stop this hand-off.", TextOutput::Tone::good);
  for (const auto& finding : findings) {
    const auto cells = rowOf(finding, {"severity", "problem", "advice"});
    text.line(foundation::joined(cells, ": "),
              cells[0] == "failure" ? TextOutput::Tone::bad : TextOutput::Tone::warning);
  }
}

Report reportOf(const Findings& findings) {
  foundation::Array entries;
  int status = 0;
  for (const auto& finding : findings) {
    const bool isFailure = finding.severity == Finding::Severity::failure;
    if (status != 1) status = isFailure ? 1 : 3;
    entries.push_back(Dictionary{{"severity", isFailure ? "failure" : "warning"},
                                 {"problem", finding.problem},
                                 {"advice", finding.advice}});
  }
  return {Dictionary{{"findings", std::move(entries)}}, showFindings, status};
}

}  // namespace

foundation::Result<Report> reportApp(const Arguments& arguments) {
  return AppSource::open(arguments.operands()[0]).map([&](const AppSource& source) {
    return Report{describeResource(source.resource(), arguments.value("--keychain")), showApp};
  });
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
                                .now = foundation::currentDate()}));
}

}  // namespace inspect

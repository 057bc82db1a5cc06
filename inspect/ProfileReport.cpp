#include "inspect/ProfileReport.h"

#include <algorithm>
#include <chrono>

#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"
#include "inspect/Commands.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTProvisioningProfile.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

Value daysUntil(const std::optional<foundation::Date>& date, foundation::Date now) {
  if (!date) return {};
  return std::int64_t{std::chrono::floor<std::chrono::days>(*date - now).count()};
}

Value describeCertificate(const foundation::Data& der,
                          const std::optional<std::string>& keychainPath) {
  const auto certificate = QVTDeveloperCertificate::initWithDataKeychainPath(der, keychainPath);
  return Dictionary{{"commonName", orNull(certificate->commonName())},
                    {"subjectSummary", orNull(certificate->subjectSummary())},
                    {"organizationName", orNull(certificate->organizationName())},
                    {"isPrivateKeyAvailable", certificate->isPrivateKeyAvailable()},
                    {"signingIdentity", orNull(certificate->signingIdentity())},
                    {"sha1", foundation::uppercaseHex(foundation::sha1(der.bytes()))}};
}

Value describeNewerMatch(const QVTProvisioningProfile& profile,
                         const ProfileSurroundings& surroundings) {
  const auto newer = profile.newestMatchAmong(surroundings.installed);
  if (!newer) return {};
  return Dictionary{{"path", newer->path()},
                    {"UUID", orNull(newer->UUID())},
                    {"creationDate", orNull(newer->creationDate())},
                    {"expirationDate", orNull(newer->expirationDate())}};
}

bool hasKey(const Value& certificate) {
  return *certificate.find("isPrivateKeyAvailable")->boolean();
}

void showCounts(const Value& document, TextOutput& text) {
  const auto& certificates = entriesAt(document, "developerCertificates");
  const auto withKey = std::ranges::count_if(certificates, hasKey);
  text.fields({{"developerCertificates", counted(certificates.size(), "certificate") + ", " +
                                             std::to_string(withKey) + " with a private key"},
               {"provisionedDevices",
                counted(entriesAt(document, "provisionedDevices").size(), "device")}});
}

void showPeople(const Value& document, TextOutput& text) {
  text.heading("developerCertificates");
  std::vector<TextOutput::Row> rows;
  for (const auto& certificate : entriesAt(document, "developerCertificates")) {
    auto& row =
        rows.emplace_back(rowOf(certificate, {"commonName", "organizationName", "", "sha1"}));
    row[2] = hasKey(certificate) ? "yes" : "no";
  }
  text.table({"common name", "organization", "key", "SHA-1"}, rows);
  text.heading("provisionedDevices");
  for (const auto& device : entriesAt(document, "provisionedDevices")) {
    text.line(*device.string());
  }
}

Value describeInstalled(const ProfileSurroundings& surroundings) {
  auto profiles = listOf(surroundings.installed, [&](const auto& profile) {
    return describeProfile(*profile, surroundings);
  });
  std::ranges::stable_sort(profiles, {},
                           [](const Value& p) { return textAt(p, "name").value_or(""); });
  return Dictionary{{"profiles", std::move(profiles)}};
}

void showInstalled(const Value& document, TextOutput& text) {
  const auto& profiles = entriesAt(document, "profiles");
  if (text.isDetailed()) {
    for (const auto& profile : profiles) {
      text.heading(textAt(profile, "name").value_or("-"));
      showProfile(profile, text);
    }
  } else if (profiles.empty()) {
    text.line("no profile is installed in " + QVTProvisioningProfile::profileDirectories().front());
  } else {
    text.table({"name", "bundle identifier", "days left", "UUID"},
               rowsOf(profiles, {"name", "bundleIdentifier", "daysToExpiry", "UUID"}));
  }
}

}  // namespace

ProfileSurroundings ProfileSurroundings::current(std::optional<std::string> keychainPath) {
  return {.keychainPath = std::move(keychainPath),
          .installed = QVTProvisioningProfile::installedProfiles(),
          .now = foundation::currentDate()};
}

Value describeProfile(const QVTProvisioningProfile& profile,
                      const ProfileSurroundings& surroundings) {
  const auto& devices = profile.provisionedDevices();
  std::vector<std::string> sortedDevices(devices.begin(), devices.end());
  std::ranges::sort(sortedDevices);
  // From the file, since certificate objects without a private key have no digest.
  auto certificates = listOf(profile.file().certificates(), [&](const auto& certificate) {
    return describeCertificate(certificate.der(), surroundings.keychainPath);
  });
  return Dictionary{
      {"path", profile.path()},
      {"name", orNull(profile.name())},
      {"UUID", orNull(profile.UUID())},
      {"bundleIdentifier", orNull(profile.bundleIdentifier())},
      {"bundleIdentifierWithAppIdPrefix", orNull(profile.bundleIdentifierWithAppIdPrefix())},
      {"applicationIdentifierPrefix", orNull(profile.applicationIdentifierPrefix())},
      {"applicationIdentifierPrefixWildCard", profile.applicationIdentifierPrefixWildCard()},
      {"hasWildcardsInBundleIdentifier", profile.hasWildcardsInBundleIdentifier()},
      {"getTaskAllow", profile.getTaskAllow()},
      {"mobile", profile.mobile()},
      {"provisionsAllDevices", profile.provisionsAllDevices()},
      {"creationDate", orNull(profile.creationDate())},
      {"expirationDate", orNull(profile.expirationDate())},
      {"daysToExpiry", daysUntil(profile.expirationDate(), surroundings.now)},
      {"provisionedDevices", arrayOf(sortedDevices)},
      {"developerCertificates", std::move(certificates)},
      {"newerMatch", describeNewerMatch(profile, surroundings)}};
}

void showProfile(const Value& document, TextOutput& text) {
  text.fields(fieldsOf(
      document, {"path", "name", "UUID", "bundleIdentifier", "bundleIdentifierWithAppIdPrefix",
                 "applicationIdentifierPrefix", "applicationIdentifierPrefixWildCard",
                 "hasWildcardsInBundleIdentifier", "getTaskAllow", "mobile", "provisionsAllDevices",
                 "creationDate", "expirationDate", "daysToExpiry"}));
  showCounts(document, text);
  if (const Value* newer = document.find("newerMatch"); newer && newer->dictionary()) {
    text.line("a newer profile is installed: " + textAt(*newer, "path").value_or(""),
              TextOutput::Tone::warning);
  }
  if (text.isDetailed()) showPeople(document, text);
}

foundation::Result<Report> reportProfile(const Arguments& arguments) {
  const bool installed = arguments.has("--installed");
  if (installed == !arguments.operands().empty()) {
    return usageError("give either a FILE or --installed");
  }
  const auto keychain = arguments.value("--keychain");
  if (installed) {
    return Report{describeInstalled(ProfileSurroundings::current(keychain)), showInstalled};
  }
  const std::string& path = arguments.operands()[0];
  const auto profile = QVTProvisioningProfile::initWithPathKeychainPath(path, keychain);
  if (!profile) return unreadable(path, "not a provisioning profile, or a damaged one");
  return Report{describeProfile(*profile, ProfileSurroundings::current(keychain)), showProfile};
}

}  // namespace inspect

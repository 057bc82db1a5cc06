#include "signing/QVTProvisioningProfile.h"

#include <algorithm>

#include "foundation/base/Format.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/SystemLog.h"

using foundation::Dictionary;
using foundation::isEqual;

namespace {

std::string removingEvery(std::string_view text, std::string_view piece) {
  std::string kept;
  for (auto at = text.find(piece); at != text.npos; at = text.find(piece)) {
    kept += text.substr(0, at);
    text.remove_prefix(at + piece.size());
  }
  return kept += text;
}

bool isProfileName(std::string_view name) {
  return name.ends_with("mobileprovision") || name.ends_with("provisionprofile");
}

}  // namespace

std::shared_ptr<QVTProvisioningProfile> QVTProvisioningProfile::initWithPath(
    const std::optional<std::string>& path) {
  return initWithPathKeychainPath(path, std::nullopt);
}

std::shared_ptr<QVTProvisioningProfile> QVTProvisioningProfile::initWithPathKeychainPath(
    const std::optional<std::string>& path, const std::optional<std::string>& keychainPath) {
  if (!path || !foundation::FileManager::fileExistsAtPath(*path)) return nullptr;
  auto contents = dictionaryForMobileProvisionAtPath(*path);
  if (!contents) return nullptr;
  std::shared_ptr<QVTProvisioningProfile> profile(new QVTProvisioningProfile);
  profile->path_ = *path;
  profile->file_.contents = *std::move(contents);
  const Dictionary& dictionary = profile->file_.contents;
  profile->creationDate_ = dateAt(dictionary, "CreationDate");
  if (const auto* certificates = arrayAt(dictionary, "DeveloperCertificates")) {
    profile->developerCertificates_ =
        parseDeveloperCertificatesKeychainPath(*certificates, keychainPath);
  }
  if (!profile->readPrefix()) return nullptr;
  profile->readEntitlements();
  profile->expirationDate_ = dateAt(dictionary, "ExpirationDate");
  profile->name_ = stringAt(dictionary, "Name");
  profile->uuid_ = stringAt(dictionary, "UUID");
  profile->readDevices();
  profile->mobile_ = path->ends_with("mobileprovision");
  profile->provisionsAllDevices_ = boolAt(dictionary, "ProvisionsAllDevices");
  return profile;
}

/// False if the list of prefixes exists but is empty.
bool QVTProvisioningProfile::readPrefix() {
  if (const auto* prefixes = arrayAt(file_.contents, "ApplicationIdentifierPrefix")) {
    if (prefixes->empty()) return false;
    if (const auto* first = prefixes->front().string()) applicationIdentifierPrefix_ = *first;
  }
  applicationIdentifierPrefixWildCard_ = foundation::format("%@.*", applicationIdentifierPrefix_);
  return true;
}

void QVTProvisioningProfile::readEntitlements() {
  const auto* entitlements = dictionaryAt(file_.contents, "Entitlements");
  if (!entitlements) return;
  getTaskAllow_ = boolAt(*entitlements, "get-task-allow");
  bundleIdentifierWithAppIdPrefix_ = stringAt(*entitlements, "application-identifier");
  if (!bundleIdentifierWithAppIdPrefix_) return;
  bundleIdentifier_ = removingEvery(*bundleIdentifierWithAppIdPrefix_,
                                    foundation::format("%@.", applicationIdentifierPrefix_));
}

void QVTProvisioningProfile::readDevices() {
  const auto* devices = arrayAt(file_.contents, "ProvisionedDevices");
  if (!devices) return;
  for (const auto& device : *devices) {
    if (const auto* identifier = device.string()) provisionedDevices_.insert(*identifier);
  }
}

bool QVTProvisioningProfile::hasWildcardsInBundleIdentifier() const {
  return bundleIdentifier_ && bundleIdentifier_->find('*') != std::string::npos;
}

std::optional<Dictionary> QVTProvisioningProfile::dictionaryForMobileProvisionAtPath(
    const std::string& path) {
  const auto message = foundation::FileManager::contentsOfFile(path);
  if (!message) {
    foundation::systemLog("%@", message.error().localizedDescription());
    return std::nullopt;
  }
  auto profile = package::ProvisioningProfile::parse(message->bytes());
  if (profile) return std::move(profile->contents);
  // Log only what the property-list reader says.
  if (profile.error().domain == foundation::kCocoaErrorDomain) {
    foundation::systemLog("Error serializing provision data %@", profile.error());
  }
  return std::nullopt;
}

QVTProvisioningProfile::Certificates QVTProvisioningProfile::parseDeveloperCertificatesKeychainPath(
    const foundation::Array& certificates, const std::optional<std::string>& keychainPath) {
  Certificates parsed;
  for (const auto& entry : certificates) {
    const auto* data = entry.data();
    if (!data) continue;
    if (auto certificate = QVTDeveloperCertificate::initWithDataKeychainPath(*data, keychainPath)) {
      parsed.push_back(std::move(certificate));
    }
  }
  return parsed;
}

std::shared_ptr<QVTDeveloperCertificate> QVTProvisioningProfile::certForCodeSignIdentity(
    const std::optional<std::string>& identity) const {
  const auto found = std::ranges::find_if(developerCertificates_, [&](const auto& certificate) {
    return isEqual(certificate->signingIdentity(), identity);
  });
  return found == developerCertificates_.end() ? nullptr : *found;
}

std::shared_ptr<QVTDeveloperCertificate> QVTProvisioningProfile::certWithPrivateKeyAvailableOrError(
    foundation::ErrorSlot error) const {
  for (const auto& certificate : developerCertificates_) {
    if (certificate->isPrivateKeyAvailable()) return certificate;
  }
  store(error, noPrivateKeyError());
  return nullptr;
}

foundation::Error QVTProvisioningProfile::noPrivateKeyError() const {
  std::string names;
  for (const auto& certificate : developerCertificates_) {
    names += foundation::format("%@\n", certificate->commonName());
  }
  return {.domain = std::string(QVTProvisioningProfileErrorDomain),
          .code = -1,
          .userInfo = {{"SourcePath", path_}, {"Details", names}}};
}

std::shared_ptr<QVTDeveloperCertificate> QVTProvisioningProfile::certWithPrivateKeyAvailable()
    const {
  return certWithPrivateKeyAvailableOrError(nullptr);
}

bool QVTProvisioningProfile::matchesBundleIdentifier(
    const std::optional<std::string>& bundleIdentifier) const {
  using Components = std::vector<std::string>;
  if (!bundleIdentifier_) return true;
  const Components own = foundation::split(*bundleIdentifier_, '.');
  const Components given =
      bundleIdentifier ? foundation::split(*bundleIdentifier, '.') : Components();
  for (std::size_t i = 0; i < own.size(); ++i) {
    if (own[i] == "*") continue;
    if (i >= given.size() || own[i] != given[i]) return false;
  }
  return true;
}

bool QVTProvisioningProfile::isSupersededBy(const QVTProvisioningProfile& other) const {
  return !isEqual(other.uuid_, uuid_) && isEqual(other.name_, name_) && other.mobile_ == mobile_ &&
         isEqual(other.bundleIdentifierWithAppIdPrefix_, bundleIdentifierWithAppIdPrefix_) &&
         other.creationDate_ && creationDate_ && *other.creationDate_ > *creationDate_;
}

std::shared_ptr<QVTProvisioningProfile>
QVTProvisioningProfile::findNewerMatchForProvisioningProfile() const {
  return newestMatchAmong(installedProfiles());
}

std::shared_ptr<QVTProvisioningProfile> QVTProvisioningProfile::newestMatchAmong(
    std::vector<std::shared_ptr<QVTProvisioningProfile>> profiles) const {
  std::erase_if(profiles, [this](const auto& profile) { return !isSupersededBy(*profile); });
  const auto newest = std::ranges::max_element(
      profiles, {}, [](const auto& profile) { return *profile->creationDate_; });
  return newest == profiles.end() ? nullptr : *newest;
}

std::vector<std::string> QVTProvisioningProfile::profileDirectories() {
  return {foundation::FileManager::expandingTilde("~/Library/MobileDevice/Provisioning Profiles")};
}

std::vector<std::shared_ptr<QVTProvisioningProfile>> QVTProvisioningProfile::installedProfiles() {
  std::vector<std::shared_ptr<QVTProvisioningProfile>> profiles;
  for (const auto& folder : profileDirectories()) {
    const auto names = foundation::FileManager::contentsOfDirectoryAtPath(folder);
    if (!names) continue;
    for (const auto& name : *names) {
      if (!isProfileName(name)) continue;
      auto profile = initWithPath(foundation::appendingPathComponent(folder, name));
      if (profile) profiles.push_back(std::move(profile));
    }
  }
  return profiles;
}

std::shared_ptr<QVTProvisioningProfile> QVTProvisioningProfile::mobileProfileWithUUID(
    const std::optional<std::string>& uuid) {
  const std::string name = foundation::format("%@.mobileprovision", uuid);
  for (const auto& folder : profileDirectories()) {
    const std::string path = foundation::appendingPathComponent(folder, name);
    if (foundation::FileManager::fileExistsAtPath(path)) return initWithPath(path);
  }
  return nullptr;
}

std::shared_ptr<QVTProvisioningProfile> QVTProvisioningProfile::copyWithZone() const {
  std::shared_ptr<QVTProvisioningProfile> copy(new QVTProvisioningProfile(*this));
  copy->uuid_.reset();
  return copy;
}

std::string QVTProvisioningProfile::description() const {
  const std::string object =
      foundation::format("<QVTProvisioningProfile: %p>", static_cast<const void*>(this));
  return foundation::format("%@ %@ %@", object, name_, bundleIdentifier_);
}

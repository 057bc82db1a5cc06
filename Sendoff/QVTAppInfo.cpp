#include "Sendoff/QVTAppInfo.h"

#include <utility>

#include <unistd.h>

#include "console/QVTCLUtilLog.h"
#include "foundation/app/Bundle.h"
#include "foundation/base/Assertion.h"
#include "foundation/base/Error.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/Keychain.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"
#include "macho/QVTMachOBinary.h"
#include "preparation/QVTCodeSignedResource.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/QVTIPA.h"
#include "preparation/TemporaryItems.h"
#include "signing/ProfileProblems.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTIPABuilder.h"
#include "signing/QVTProvisioningProfile.h"
#include "signing/SigningCertificate.h"
#include "xcode/QVTXcodeArchive.h"

namespace {

constexpr int kReady = 0;
constexpr int kFailed = 1;

bool remove(const std::optional<std::string>& item, const std::optional<std::string>& shownPath) {
  if (!item) return true;
  const auto removed = foundation::FileManager::removeItemAtPath(*item);
  if (!removed) {
    debugLog("Unable to remove item at path %@ %@",
             foundation::escapingControlCharacters(shownPath), removed.error());
  }
  return removed.ok();
}

/// Prints a message, and logs its cause, if there is none.
std::shared_ptr<QVTDeveloperCertificate> usableCertificateOf(
    const QVTProvisioningProfile& profile, const std::optional<std::string>& keychain) {
  auto certificate = certificateToSignWith(profile, keychain);
  if (certificate) return *std::move(certificate);
  foundation::systemLog("Cannot sign: %@", certificate.error().localizedDescription());
  QVTCLUtilLog("Unable to find a certificate with a private key: %@", profile.noPrivateKeyError());
  return nullptr;
}

}  // namespace

QVTAppInfo::QVTAppInfo(std::string apiKey, std::string buildSecret, std::string apiEndpoint,
                       std::string uploadEndpoint)
    : apiKey_(std::move(apiKey)),
      buildSecret_(std::move(buildSecret)),
      apiEndpoint_(std::move(apiEndpoint)),
      uploadEndpoint_(std::move(uploadEndpoint)) {}

QVTAppInfo::~QVTAppInfo() { removeTempArchives(); }

int QVTAppInfo::prepBinaryWithIPAPath(const std::string& path) {
  codeSignedResource_ = QVTIPA::initWithPath(path);
  if (!codeSignedResource_) return kFailed;
  pathToUnzippedApp_ = codeSignedResource_->path();
  return readBinary() ? prepBinary() : kReady;
}

int QVTAppInfo::prepBinaryWithArchivePath(const std::string& path) {
  QVTCLUtilLog("Uploading archive at %@", foundation::escapingControlCharacters(path));
  codeSignedResource_ = QVTXcodeArchive::initWithURL(foundation::URL::fileURLWithPath(path));
  if (!codeSignedResource_ || !codeSignedResource_->path()) {
    QVTCLUtilLog("Unable to read archive at %@", foundation::escapingControlCharacters(path));
    return kFailed;
  }
  std::optional<foundation::Error> error;
  pathToUnzippedApp_ = QVTFileSystemUtils::moveAppToTempPath(*codeSignedResource_->path(), &error);
  if (!pathToUnzippedApp_) {
    QVTCLUtilLog("Unable to move application to temp path due to error: %@", error);
    return kFailed;
  }
  folderOfCopy_ = foundation::deletingLastPathComponent(*pathToUnzippedApp_);
  return readBinary() ? prepBinary() : kReady;
}

bool QVTAppInfo::readBinary() {
  const auto bundle = codeSignedResource_->bundle();
  const auto executable = bundle ? bundle->executablePath() : std::nullopt;
  binary_ = executable ? QVTMachOBinary::MachOBinaryWithPath(*executable) : nullptr;
  // Deliberately not an error: without a binary, the run ends at the upload.
  if (!binary_) QVTCLUtilLog("Unable to read Mach-O binary.");
  return binary_ != nullptr;
}

int QVTAppInfo::prepBinary() {
  foundation::assertThat(
      pathToUnzippedApp_.has_value(), "_pathToUnzippedApp",
      {.function = "-[QVTAppInfo prepBinary]", .source = "Sendoff/Sendoff/QVTAppInfo", .line = 76});
  const foundation::KeychainSession keychains;
  if (!readProfile()) return kFailed;
  warnOfProfile();
  return package() ? kReady : kFailed;
}

bool QVTAppInfo::readProfile() {
  const auto keychain = signingKeychain();
  if (keychain) foundation::systemLog("Using CODE_SIGN_KEYCHAIN: %@", *keychain);
  const auto& resource = codeSignedResource_;
  const auto path = resource ? resource->provisioningProfilePath() : std::nullopt;
  const auto usable = resource ? resource->usableProvisioningProfilePath() : std::nullopt;
  provisioningProfile_ =
      usable ? QVTProvisioningProfile::initWithPathKeychainPath(*usable, keychain) : nullptr;
  if (!provisioningProfile_) {
    QVTCLUtilLog("Unable to read provisioning profile at %@",
                 foundation::escapingControlCharacters(path));
  }
  return provisioningProfile_ != nullptr;
}

void QVTAppInfo::warnOfProfile() const {
  const auto identifier = codeSignedResource_->bundleIdentifier().value_or("");
  const auto now = foundation::currentDate();
  for (const auto& one : profileProblems(*provisioningProfile_, identifier, now)) {
    foundation::systemLog("Warning: %@: %@", one.problem, one.advice);
  }
}

bool QVTAppInfo::package() {
  const auto certificate = usableCertificateOf(*provisioningProfile_, signingKeychain());
  if (!certificate) return false;
  const auto builder = QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
      provisioningProfile_, certificate);
  if (!builder) {
    QVTCLUtilLog(
        "Unable to prepare for re-signing. Ensure that a private key matching one of the "
        "provisioning profile's certificates is in your keychain.");
    return false;
  }
  releasePath_ = pathForDistribution();
  TemporaryItems::claimNew(*releasePath_);
  std::optional<foundation::Error> error;
  if (builder->packageSourceToDestinationPath(*pathToUnzippedApp_, *releasePath_, &error)) {
    return true;
  }
  QVTCLUtilLog("Unable to package source due to error: %@", error);
  return false;
}

std::string QVTAppInfo::ipaTemporaryStoragePath() {
  const auto temporary = foundation::FileManager::temporaryDirectory();
  if (!temporary) throw foundation::Exception(temporary.error().localizedDescription());
  return foundation::appendingPathComponent(*temporary, "com.quorvantile.mac/distributions");
}

std::string QVTAppInfo::pathForDistribution() {
  return foundation::appendingPathComponent(ipaTemporaryStoragePath(),
                                            foundation::ProcessInfo::newUUIDString() + ".ipa");
}

bool QVTAppInfo::removeTempArchives() const {
  // Both messages deliberately show the app folder's path.
  if (!remove(pathToUnzippedApp_, pathToUnzippedApp_)) return false;
  if (folderOfCopy_) ::rmdir(folderOfCopy_->c_str());
  return remove(releasePath_, pathToUnzippedApp_);
}

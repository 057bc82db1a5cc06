#include "signing/QVTIPABuilder.h"

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/format/PropertyList.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"
#include "package/AppPackage.h"
#include "preparation/PrivateDirectory.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"

using foundation::appendingPathComponent;
using foundation::Data;
using foundation::Error;
using foundation::Result;

namespace FileManager = foundation::FileManager;
namespace PropertyList = foundation::PropertyList;

namespace {

constexpr const char* kDistributionMark = "QuorvantileSignedForDistribution";
constexpr const char* kBetaReports = "beta-reports-active";
constexpr const char* kPayload = "Payload";

/// Logs a failure, which the caller's error cannot carry.
bool rewrite(foundation::Dictionary list, const std::string& path) {
  const Result<> written = PropertyList::writeToFileAtomically(std::move(list), path);
  if (!written) foundation::systemLog("%@", written.error().localizedDescription());
  return written.ok();
}

Error failureOf(long code, foundation::Dictionary details = {}) {
  return {.domain = std::string(QVTIPABuilderErrorDomain),
          .code = code,
          .userInfo = std::move(details)};
}

Error failureOf(long code, const std::optional<Error>& underlying) {
  if (!underlying) return failureOf(code);
  return failureOf(code, foundation::Dictionary{{"UnderlyingError", *underlying}});
}

}  // namespace

std::shared_ptr<QVTIPABuilder> QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
    std::shared_ptr<QVTProvisioningProfile> profile,
    std::shared_ptr<QVTDeveloperCertificate> developerCertificate) {
  auto signer = QVTCodeSigner::initWithDeveloperCertificate(std::move(developerCertificate));
  if (!signer) return nullptr;
  std::shared_ptr<QVTIPABuilder> builder(new QVTIPABuilder);
  builder->profile_ = std::move(profile);
  builder->signer_ = std::move(signer);
  return builder;
}

std::string QVTIPABuilder::workDirectory() const {
  const auto temporary = FileManager::temporaryDirectory();
  if (!temporary) throw foundation::Exception(temporary.error().localizedDescription());
  return appendingPathComponent(appendingPathComponent(*temporary, "com.quorvantile.ipas"),
                                foundation::ProcessInfo::newUUIDString());
}

bool QVTIPABuilder::packageSourceToDestinationPath(const std::string& source,
                                                   const std::string& destination,
                                                   foundation::ErrorSlot error) const {
  const std::string workFolder = workDirectory();
  TemporaryItems::claimNew(workFolder);
  auto packaged = package(source, destination, workFolder);
  if (packaged) {
    QVTFileSystemUtils::removeItemAtPathIfPresent(workFolder);
    return true;
  }
  packaged.error().userInfo.insert_or_assign("SourcePath", workFolder);
  store(error, std::move(packaged.error()));
  return false;
}

Result<> QVTIPABuilder::package(const std::string& source, const std::string& destination,
                                const std::string& workFolder) const {
  const std::string payload = appendingPathComponent(workFolder, kPayload);
  if (!QVTFileSystemUtils::removeItemAtPathIfPresent(payload)) return failureOf(kPreparingFolders);
  if (const auto made = PrivateDirectory::make(payload); !made) {
    return failureOf(kPreparingFolders, made.error());
  }
  if (!QVTFileSystemUtils::copyItemToDirectory(source, payload)) return failureOf(kCopyingApp);
  const std::string app = appendingPathComponent(payload, foundation::lastPathComponent(source));
  if (!infoPlistAlreadyHasDistribution(app)) {
    if (auto resigned = resign(app, payload); !resigned) return resigned;
  }
  // A bare file name has the current folder as its parent, which exists.
  const std::string parent = foundation::deletingLastPathComponent(destination);
  const auto made = parent.empty() ? Result<>() : PrivateDirectory::make(parent);
  return made ? zip(destination, workFolder) : failureOf(kPreparingFolders, made.error());
}

Result<> QVTIPABuilder::resign(const std::string& app, const std::string& payload) const {
  std::optional<Error> error;
  if (!signer_->checkToolPathsWithError(&error)) return failureOf(kFindingTools, error);
  if (!signer_->verifyCodeSigningForBundleAtPath(app, &error)) return failureOf(kVerifying, error);
  const std::string entitlements = appendingPathComponent(payload, "entitlements.xml");
  const std::string resourceRules = appendingPathComponent(payload, "resource_rules.xml");
  if (!signer_->exportAppEntitlementsToPathResourceRulesToPath(app, entitlements, resourceRules)) {
    return failureOf(kExportingEntitlements);
  }
  if (!repairEntitlements(entitlements)) return failureOf(kRepairingEntitlements);
  signer_->setEntitlementsPath(entitlements);
  signer_->setResourceRulesPath(resourceRules);
  signer_->setEmbeddedProfilePath(profile_->path());
  // Before signing, since the signature covers the mark.
  if (!markInfoPlistForDistributionAtAppPath(app)) return failureOf(kMarkingInfoPlist);
  if (auto signedApp = signApp(app); !signedApp) return signedApp;
  // In case the signer could not: everything in this folder ends up in the .ipa.
  for (const std::string& path : {entitlements, resourceRules}) {
    if (!QVTFileSystemUtils::removeItemAtPathIfPresent(path)) return failureOf(kPreparingFolders);
  }
  return {};
}

Result<> QVTIPABuilder::signApp(const std::string& app) const {
  std::optional<Error> error;
  if (signer_->sign(app, &error)) return {};
  switch (error ? error->code : 0) {
    case -1:
      return failureOf(kSigningWithoutInput, error);
    case -3:
      return failureOf(kSigningVerification, error);
    default:
      return failureOf(kSigning, error);
  }
}

Result<> QVTIPABuilder::zip(const std::string& destination, const std::string& workFolder) const {
  const std::string tool = QVTFileSystemUtils::pathForRequiredShellTool("zip").value_or("");
  const std::vector<std::string> arguments{"-q", "--symlinks", "-r", destination, kPayload};
  Result<> outcome;
  QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(
      tool, workFolder, arguments, foundation::Environment(),
      [&](const Data& errorData, const Data& outputData, std::int32_t status) {
        if (status == 0) return;
        outcome = failureOf(
            kZipping, QVTTask::descriptionOfRun(tool, arguments, errorData, outputData, status));
      });
  return outcome;
}

bool QVTIPABuilder::repairEntitlements(const std::string& path) const {
  auto entitlements = PropertyList::dictionaryWithContentsOfFile(path);
  if (!entitlements) return false;
  entitlements->erase(kBetaReports);
  return rewrite(*std::move(entitlements), path);
}

bool QVTIPABuilder::infoPlistAlreadyHasDistribution(const std::string& appPath) const {
  const auto info = package::AppPackage(appPath).infoDictionary();
  return info && boolAt(*info, kDistributionMark);
}

bool QVTIPABuilder::markInfoPlistForDistributionAtAppPath(const std::string& appPath) const {
  const package::AppPackage app(appPath);
  auto info = app.infoDictionary();
  if (!info) return false;
  info->insert_or_assign(kDistributionMark, true);
  return rewrite(*std::move(info), app.infoPlistPath());
}

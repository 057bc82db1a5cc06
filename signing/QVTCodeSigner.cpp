#include "signing/QVTCodeSigner.h"

#include <cerrno>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"
#include "package/AppPackage.h"
#include "preparation/QVTFileSystemUtils.h"

using foundation::Data;
using foundation::Error;
using foundation::ErrorSlot;
using foundation::Result;

namespace {

Error signerError(long code, foundation::Dictionary userInfo = {}) {
  return {.domain = std::string(QVTCodeSignerErrorDomain),
          .code = code,
          .userInfo = std::move(userInfo)};
}

bool fail(ErrorSlot slot, Error error) {
  store(slot, std::move(error));
  return false;
}

/// The first lines of a failed run's output, joined; its exit status if there was no output.
std::string firstLines(const foundation::Dictionary& run) {
  constexpr std::size_t kMost = 3;
  std::vector<std::string> lines;
  for (const char* stream : {"stderr", "stdout"}) {
    for (auto& line : foundation::split(stringAt(run, stream).value_or(""), '\n')) {
      if (!line.empty() && lines.size() < kMost) lines.push_back(std::move(line));
    }
  }
  if (lines.empty())
    return foundation::format("codesign ended with status %@", find(run, "status"));
  return foundation::joined(lines, "; ");
}

}  // namespace

std::shared_ptr<QVTCodeSigner> QVTCodeSigner::initWithDeveloperCertificate(
    std::shared_ptr<QVTDeveloperCertificate> developerCertificate) {
  auto toolPath = QVTFileSystemUtils::pathForXcTool("codesign");
  auto allocatePath = QVTFileSystemUtils::pathForXcTool("codesign_allocate");
  if (!toolPath || !allocatePath) return nullptr;
  std::shared_ptr<QVTCodeSigner> signer(new QVTCodeSigner);
  signer->toolPath_ = *std::move(toolPath);
  signer->allocatePath_ = *std::move(allocatePath);
  signer->developerCertificate_ = std::move(developerCertificate);
  return signer;
}

template <class... Arguments>
void QVTCodeSigner::log(std::string_view text, const Arguments&... arguments) const {
  if (logFunc_) logFunc_(foundation::format(text, arguments...));
}

bool QVTCodeSigner::checkToolPathsWithError(ErrorSlot error) const {
  if (toolPath_.empty()) return fail(error, signerError(-4));
  if (allocatePath_.empty()) return fail(error, signerError(-5));
  return true;
}

bool QVTCodeSigner::launchCodeSignWithArgumentsErrorCode(const std::vector<std::string>& arguments,
                                                         long code, ErrorSlot error) const {
  const foundation::Environment environment{{"CODESIGN_ALLOCATE", allocatePath_}};
  log("%@ %@", toolPath_, foundation::joined(arguments, " "));
  bool succeeded = false;
  QVTTask::launchWithPathWorkingDirectoryArgumentsEnvironmentCompletion(
      toolPath_, std::nullopt, arguments, environment,
      [&](const Data& errorData, const Data& outputData, std::int32_t status) {
        succeeded = status == 0;
        auto run = QVTTask::descriptionOfRun(toolPath_, arguments, errorData, outputData, status);
        log("%@", stringAt(run, "stderr"));
        log("%@", stringAt(run, "stdout"));
        log("Status: %d", status);
        if (succeeded) return;
        run.emplace("environment", foundation::Dictionary(environment.begin(), environment.end()));
        store(error, signerError(code, std::move(run)));
      });
  return succeeded;
}

/// Replaces the app's profile.
Result<> QVTCodeSigner::installProfile(const std::string& appPath) const {
  namespace FileManager = foundation::FileManager;
  if (!FileManager::fileExistsAtPath(*embeddedProfilePath_)) return signerError(-1);
  const std::string target = package::AppPackage(appPath).profilePath();
  if (FileManager::fileExistsAtPath(target)) {
    if (auto removed = FileManager::removeItemAtPath(target); !removed) return removed;
  }
  return FileManager::copyItemAtPath(*embeddedProfilePath_, target);
}

/// False without entitlements to sign with. A file that exists but cannot be read is an error, or
/// the app would be signed with fewer rights than it has.
Result<bool> QVTCodeSigner::hasEntitlements() const {
  if (!entitlementsPath_) return false;
  const auto content = foundation::FileManager::contentsOfFile(*entitlementsPath_);
  if (content) return !content->empty();
  if (content.error().code == ENOENT) return false;
  return content.error();
}

std::vector<std::string> QVTCodeSigner::signingArguments(const std::string& appPath,
                                                         bool withEntitlements) const {
  std::vector<std::string> arguments{"--sign",
                                     developerCertificate_->signingIdentity().value_or(""),
                                     "--all-architectures", "--force"};
  if (const auto& keychain = developerCertificate_->keychainPath()) {
    arguments.insert(arguments.end(), {"--keychain", *keychain});
  }
  if (withEntitlements) {
    arguments.insert(arguments.end(), {"--entitlements", *entitlementsPath_});
  }
  arguments.push_back(appPath);
  return arguments;
}

bool QVTCodeSigner::sign(const std::optional<std::string>& appPath, ErrorSlot error) const {
  if (!appPath) return fail(error, signerError(-1));
  const auto withEntitlements =
      (embeddedProfilePath_ ? installProfile(*appPath) : Result<>()).andThen([this] {
        return hasEntitlements();
      });
  if (!withEntitlements) return fail(error, withEntitlements.error());
  const auto arguments = signingArguments(*appPath, *withEntitlements);
  if (!launchCodeSignWithArgumentsErrorCode(arguments, -2, error)) return false;
  verify(*appPath, "as it was signed");
  if (error) error->reset();
  for (const auto& path : {entitlementsPath_, resourceRulesPath_}) {
    if (path) static_cast<void>(foundation::FileManager::removeItemAtPath(*path));
  }
  return true;
}

bool QVTCodeSigner::verifyCodeSigningForBundleAtPath(const std::string& path,
                                                     ErrorSlot error) const {
  verify(path, "as it came");
  if (error) error->reset();
  return true;
}

void QVTCodeSigner::verify(const std::string& path, std::string_view state) const {
  log("Verifying code sign at: %@", path);
  std::optional<Error> failure;
  if (launchCodeSignWithArgumentsErrorCode({"-vv", path}, -3, &failure)) return;
  log("Warning: codesign verification failed: %@", find(failure->userInfo, "stderr"));
  foundation::systemLog("Warning: the app %@ does not verify: %@", state,
                        firstLines(failure->userInfo));
}

bool QVTCodeSigner::exportAppEntitlementsToPathResourceRulesToPath(
    const std::string& appPath, const std::string& entitlementsPath,
    const std::string& resourceRulesPath) const {
  log("Exporting entitlements and resources from %@", appPath);
  // The colon asks for the bare property list, without the blob header.
  const std::vector<std::string> arguments{
      "--display",      "--resource-rules",     resourceRulesPath,
      "--entitlements", ":" + entitlementsPath, appPath};
  std::optional<Error> failure;
  if (launchCodeSignWithArgumentsErrorCode(arguments, 0, &failure) ||
      (foundation::FileManager::fileExistsAtPath(entitlementsPath) &&
       foundation::FileManager::fileExistsAtPath(resourceRulesPath))) {
    return true;
  }
  // The caller's error cannot carry it.
  foundation::systemLog("Exporting entitlements: %@ ended with status %@: %@", toolPath_,
                        find(failure->userInfo, "status"), find(failure->userInfo, "stderr"));
  return false;
}

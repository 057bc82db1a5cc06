#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"
#include "signing/QVTDeveloperCertificate.h"

inline constexpr std::string_view QVTCodeSignerErrorDomain = "QVTCodeSignerErrorDomain";

/// Re-signs an app with the `codesign` that `xcrun` finds. Blocks while the tool runs. Throws
/// `foundation::Exception` when an existing tool cannot be launched.
///
/// Errors are of QVTCodeSignerErrorDomain. One about a run of the tool has, as its user info,
/// `QVTTask::descriptionOfRun` with "environment".
class QVTCodeSigner {
 public:
  /// Takes one formatted line.
  using LogFunction = std::function<void(const std::string& line)>;

  /// Empty only if the search for a tool printed no text. A tool that was not found has an empty
  /// path, which `checkToolPathsWithError` reports.
  static std::shared_ptr<QVTCodeSigner> initWithDeveloperCertificate(
      std::shared_ptr<QVTDeveloperCertificate> developerCertificate);

  [[nodiscard]] const std::string& toolPath() const { return toolPath_; }
  [[nodiscard]] const std::string& allocatePath() const { return allocatePath_; }
  [[nodiscard]] const std::shared_ptr<QVTDeveloperCertificate>& developerCertificate() const {
    return developerCertificate_;
  }

  /// The profile to copy into the app before signing.
  [[nodiscard]] const std::optional<std::string>& embeddedProfilePath() const {
    return embeddedProfilePath_;
  }
  void setEmbeddedProfilePath(std::optional<std::string> path) {
    embeddedProfilePath_ = std::move(path);
  }
  /// The entitlements to sign with; an empty file counts as none. Deleted after successful signing.
  [[nodiscard]] const std::optional<std::string>& entitlementsPath() const {
    return entitlementsPath_;
  }
  void setEntitlementsPath(std::optional<std::string> path) { entitlementsPath_ = std::move(path); }
  /// Not given to the tool. Deleted after successful signing.
  [[nodiscard]] const std::optional<std::string>& resourceRulesPath() const {
    return resourceRulesPath_;
  }
  void setResourceRulesPath(std::optional<std::string> path) {
    resourceRulesPath_ = std::move(path);
  }
  /// Optional.
  [[nodiscard]] const LogFunction& logFunc() const { return logFunc_; }
  void setLogFunc(LogFunction function) { logFunc_ = std::move(function); }

  /// Fails with -4 without `codesign`, with -5 without `codesign_allocate`.
  bool checkToolPathsWithError(foundation::ErrorSlot error) const;
  /// Runs the tool with CODESIGN_ALLOCATE as its only environment variable. Fails with `code`
  /// unless it exits with status 0.
  bool launchCodeSignWithArgumentsErrorCode(const std::vector<std::string>& arguments, long code,
                                            foundation::ErrorSlot error = nullptr) const;
  /// Fails with -1 without an app or if the profile is missing, with -2 if the tool failed, and
  /// with the file manager's error if the profile or the entitlements cannot be read or copied.
  bool sign(const std::optional<std::string>& appPath, foundation::ErrorSlot error = nullptr) const;
  /// Always true, with an empty slot: a failed verification is only logged, in the system log with
  /// the first lines of the tool's output.
  bool verifyCodeSigningForBundleAtPath(const std::string& path,
                                        foundation::ErrorSlot error = nullptr) const;
  /// True if the tool succeeded, or failed but wrote both files.
  bool exportAppEntitlementsToPathResourceRulesToPath(const std::string& appPath,
                                                      const std::string& entitlementsPath,
                                                      const std::string& resourceRulesPath) const;

 private:
  QVTCodeSigner() = default;
  template <class... Arguments>
  void log(std::string_view text, const Arguments&... arguments) const;
  /// `state` describes the app in the log.
  void verify(const std::string& path, std::string_view state) const;
  [[nodiscard]] foundation::Result<> installProfile(const std::string& appPath) const;
  [[nodiscard]] foundation::Result<bool> hasEntitlements() const;
  [[nodiscard]] std::vector<std::string> signingArguments(const std::string& appPath,
                                                          bool withEntitlements) const;

  std::string toolPath_;
  std::string allocatePath_;
  std::shared_ptr<QVTDeveloperCertificate> developerCertificate_;
  std::optional<std::string> embeddedProfilePath_;
  std::optional<std::string> entitlementsPath_;
  std::optional<std::string> resourceRulesPath_;
  LogFunction logFunc_;
};

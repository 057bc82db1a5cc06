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

/// Re-signs an app with `codesign`, which `xcrun` finds. Blocks for every run of the tool. A tool
/// that is there but cannot be launched is a `foundation::Exception`.
class QVTCodeSigner {
 public:
  /// Takes one line of text, already formatted.
  using LogFunction = std::function<void(const std::string& line)>;

  /// Empty when looking for a tool gives no answer at all; a tool that is merely not found leaves
  /// an empty path, which `checkToolPathsWithError` reports.
  static std::shared_ptr<QVTCodeSigner> initWithDeveloperCertificate(
      std::shared_ptr<QVTDeveloperCertificate> developerCertificate);

  [[nodiscard]] const std::string& toolPath() const { return toolPath_; }
  [[nodiscard]] const std::string& allocatePath() const { return allocatePath_; }
  [[nodiscard]] const std::shared_ptr<QVTDeveloperCertificate>& developerCertificate() const {
    return developerCertificate_;
  }

  /// The profile that is copied into the app before it is signed.
  [[nodiscard]] const std::optional<std::string>& embeddedProfilePath() const {
    return embeddedProfilePath_;
  }
  void setEmbeddedProfilePath(std::optional<std::string> path) {
    embeddedProfilePath_ = std::move(path);
  }
  /// The entitlements to sign with, unless the file is empty. Deleted after a successful signing.
  [[nodiscard]] const std::optional<std::string>& entitlementsPath() const {
    return entitlementsPath_;
  }
  void setEntitlementsPath(std::optional<std::string> path) { entitlementsPath_ = std::move(path); }
  /// Never given to the tool, only deleted after a successful signing.
  [[nodiscard]] const std::optional<std::string>& resourceRulesPath() const {
    return resourceRulesPath_;
  }
  void setResourceRulesPath(std::optional<std::string> path) {
    resourceRulesPath_ = std::move(path);
  }
  /// Unset: nothing is logged.
  [[nodiscard]] const LogFunction& logFunc() const { return logFunc_; }
  void setLogFunc(LogFunction function) { logFunc_ = std::move(function); }

  /// -4 when `codesign` was not found, -5 when `codesign_allocate` was not.
  bool checkToolPathsWithError(foundation::ErrorSlot error) const;
  /// Runs the tool, with CODESIGN_ALLOCATE as its whole environment. True for status 0; else the
  /// error has the given code and tells the run with its output.
  bool launchCodeSignWithArgumentsErrorCode(const std::vector<std::string>& arguments, long code,
                                            foundation::ErrorSlot error = nullptr) const;
  /// -1 without an app or with a missing profile, -2 when the run failed, or the file manager's
  /// error when the profile could not be put into the app.
  bool sign(const std::optional<std::string>& appPath, foundation::ErrorSlot error = nullptr) const;
  /// Always true and the slot always empty: a failed verification is only logged, and the system
  /// log gets the first lines of what the tool said.
  bool verifyCodeSigningForBundleAtPath(const std::string& path,
                                        foundation::ErrorSlot error = nullptr) const;
  /// True when the run succeeded, or when it failed but left both files.
  bool exportAppEntitlementsToPathResourceRulesToPath(const std::string& appPath,
                                                      const std::string& entitlementsPath,
                                                      const std::string& resourceRulesPath) const;

 private:
  QVTCodeSigner() = default;
  template <class... Arguments>
  void log(std::string_view text, const Arguments&... arguments) const;
  /// `state`, for the log: how the app is now.
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

#pragma once

#include <memory>
#include <optional>
#include <string>

class QVTCodeSignedResource;
class QVTMachOBinary;
class QVTProvisioningProfile;

/// A run's credentials, base URLs, app and built .ipa, from preparation to upload.
///
/// One object per run, used from one thread. The destructor removes the app's temporary copy and
/// the .ipa.
class QVTAppInfo {
 public:
  /// `initWithApiKey:buildSecret:apiEndpoint:uploadEndpoint:`. Everything else starts absent.
  QVTAppInfo(std::string apiKey, std::string buildSecret, std::string apiEndpoint,
             std::string uploadEndpoint);
  ~QVTAppInfo();
  QVTAppInfo(const QVTAppInfo&) = delete;
  QVTAppInfo& operator=(const QVTAppInfo&) = delete;

  /// Unpacks the .ipa into the temporary folder and makes its app ready to upload. Returns 0 if it
  /// is ready, else 1 after a message, which is missing only if the .ipa contains no app. An
  /// unreadable executable gives a message and 0: the run continues without a binary, a profile and
  /// an .ipa.
  int prepBinaryWithIPAPath(const std::string& path);
  /// The same for the app of an Xcode archive, which is copied to the temporary folder.
  int prepBinaryWithArchivePath(const std::string& path);
  /// The second half of both: signs the app at `pathToUnzippedApp`, which must be set, with its own
  /// profile and an identity from the user's keychain, and packs it at `releasePath`.
  int prepBinary();

  /// The folder of built .ipa files, which need not exist. Throws `foundation::Exception` if the
  /// temporary folder cannot be used.
  [[nodiscard]] static std::string ipaTemporaryStoragePath();
  /// A new file name in that folder on every call.
  [[nodiscard]] static std::string pathForDistribution();

  /// Removes the app folder, the then empty folder that was made for a copy, and the built .ipa.
  /// Returns false, leaving the rest alone, at the first that cannot be removed.
  bool removeTempArchives() const;

  /// Empty until the app has been opened.
  [[nodiscard]] const std::shared_ptr<QVTCodeSignedResource>& codeSignedResource() const {
    return codeSignedResource_;
  }
  void setCodeSignedResource(std::shared_ptr<QVTCodeSignedResource> resource) {
    codeSignedResource_ = std::move(resource);
  }
  /// The app's executable; empty if it cannot be read.
  [[nodiscard]] const std::shared_ptr<QVTMachOBinary>& binary() const { return binary_; }
  void setBinary(std::shared_ptr<QVTMachOBinary> binary) { binary_ = std::move(binary); }

  [[nodiscard]] const std::string& apiKey() const { return apiKey_; }
  [[nodiscard]] const std::string& buildSecret() const { return buildSecret_; }
  [[nodiscard]] const std::string& apiEndpoint() const { return apiEndpoint_; }
  [[nodiscard]] const std::string& uploadEndpoint() const { return uploadEndpoint_; }

  /// The app folder to sign, pack and finally remove.
  [[nodiscard]] const std::optional<std::string>& pathToUnzippedApp() const {
    return pathToUnzippedApp_;
  }
  void setPathToUnzippedApp(std::optional<std::string> path) {
    pathToUnzippedApp_ = std::move(path);
  }
  /// The app's embedded profile.
  [[nodiscard]] const std::shared_ptr<QVTProvisioningProfile>& provisioningProfile() const {
    return provisioningProfile_;
  }
  void setProvisioningProfile(std::shared_ptr<QVTProvisioningProfile> profile) {
    provisioningProfile_ = std::move(profile);
  }
  /// The .ipa to upload; absent until packing begins.
  [[nodiscard]] const std::optional<std::string>& releasePath() const { return releasePath_; }

 private:
  /// False, with a message, when the executable of the resource's bundle cannot be read.
  bool readBinary();
  bool readProfile();
  /// Logs every reason why testers could not install the app.
  void warnOfProfile() const;
  bool package();

  std::shared_ptr<QVTCodeSignedResource> codeSignedResource_;
  std::shared_ptr<QVTMachOBinary> binary_;
  std::string apiKey_;
  std::string buildSecret_;
  std::string apiEndpoint_;
  std::string uploadEndpoint_;
  std::optional<std::string> pathToUnzippedApp_;
  /// Around a copy of an archive's app.
  std::optional<std::string> folderOfCopy_;
  std::shared_ptr<QVTProvisioningProfile> provisioningProfile_;
  std::optional<std::string> releasePath_;
};

#pragma once

#include <memory>
#include <optional>
#include <string>

class QVTCodeSignedResource;
class QVTMachOBinary;
class QVTProvisioningProfile;

/// The app on its way from preparation to upload: the credentials and base URLs of the run, the app
/// itself, and what was made of it.
///
/// One object per run, used from one thread. Its end removes the app's temporary copy and the built
/// .ipa, whatever happened before.
class QVTAppInfo {
 public:
  /// `initWithApiKey:buildSecret:apiEndpoint:uploadEndpoint:`. Everything else starts absent.
  QVTAppInfo(std::string apiKey, std::string buildSecret, std::string apiEndpoint,
             std::string uploadEndpoint);
  ~QVTAppInfo();
  QVTAppInfo(const QVTAppInfo&) = delete;
  QVTAppInfo& operator=(const QVTAppInfo&) = delete;

  /// Takes the app from an .ipa, which is inflated into the temporary folder, and makes it ready to
  /// upload. Returns 0 when ready and 1 when not; a message is printed then, but for an .ipa
  /// without an app in it. An executable that cannot be read gives a message and 0: the run goes on
  /// without a binary, a profile and an .ipa to upload.
  int prepBinaryWithIPAPath(const std::string& path);
  /// The same for the app of an Xcode archive (the path of the archive itself), which is copied to
  /// the temporary folder first.
  int prepBinaryWithArchivePath(const std::string& path);
  /// The second half of both: signs the app at `pathToUnzippedApp` with its own profile and an
  /// identity from the user's keychain, and packs it at `releasePath`. Without a
  /// `pathToUnzippedApp` this is a programming fault.
  int prepBinary();

  /// The folder of the built .ipa files. Throws `foundation::Exception` when there is no temporary
  /// folder. The folder itself need not exist.
  [[nodiscard]] static std::string ipaTemporaryStoragePath();
  /// A new file name in that folder on every call.
  [[nodiscard]] static std::string pathForDistribution();

  /// Removes the app folder, and the folder that was made for a copy if that is empty then, then
  /// the built .ipa. False when app or .ipa is set and could not be removed; the .ipa is left alone
  /// when the app folder could not be.
  bool removeTempArchives() const;

  /// Empty until a route has opened the app.
  [[nodiscard]] const std::shared_ptr<QVTCodeSignedResource>& codeSignedResource() const {
    return codeSignedResource_;
  }
  void setCodeSignedResource(std::shared_ptr<QVTCodeSignedResource> resource) {
    codeSignedResource_ = std::move(resource);
  }
  /// The app's executable; empty when it could not be read.
  [[nodiscard]] const std::shared_ptr<QVTMachOBinary>& binary() const { return binary_; }
  void setBinary(std::shared_ptr<QVTMachOBinary> binary) { binary_ = std::move(binary); }

  [[nodiscard]] const std::string& apiKey() const { return apiKey_; }
  [[nodiscard]] const std::string& buildSecret() const { return buildSecret_; }
  [[nodiscard]] const std::string& apiEndpoint() const { return apiEndpoint_; }
  [[nodiscard]] const std::string& uploadEndpoint() const { return uploadEndpoint_; }

  /// The app folder that is signed and packed, and removed at the end.
  [[nodiscard]] const std::optional<std::string>& pathToUnzippedApp() const {
    return pathToUnzippedApp_;
  }
  void setPathToUnzippedApp(std::optional<std::string> path) {
    pathToUnzippedApp_ = std::move(path);
  }
  /// The profile that is embedded in the app.
  [[nodiscard]] const std::shared_ptr<QVTProvisioningProfile>& provisioningProfile() const {
    return provisioningProfile_;
  }
  void setProvisioningProfile(std::shared_ptr<QVTProvisioningProfile> profile) {
    provisioningProfile_ = std::move(profile);
  }
  /// The .ipa to upload; absent until packing has begun.
  [[nodiscard]] const std::optional<std::string>& releasePath() const { return releasePath_; }

 private:
  /// False, with a message, when the executable of the resource's bundle cannot be read.
  bool readBinary();
  bool readProfile();
  /// One line in the system log for each reason why nobody could install the app; the run goes on.
  void warnOfProfile() const;
  bool package();

  std::shared_ptr<QVTCodeSignedResource> codeSignedResource_;
  std::shared_ptr<QVTMachOBinary> binary_;
  std::string apiKey_;
  std::string buildSecret_;
  std::string apiEndpoint_;
  std::string uploadEndpoint_;
  std::optional<std::string> pathToUnzippedApp_;
  /// Made for a copy of the app alone; absent in the .ipa route.
  std::optional<std::string> folderOfCopy_;
  std::shared_ptr<QVTProvisioningProfile> provisioningProfile_;
  std::optional<std::string> releasePath_;
};

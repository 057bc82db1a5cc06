#pragma once

#include <string_view>
#include <vector>

#include "QVTIDEFoundation/QVTIDEFile.h"
#include "QVTIDEFoundation/QVTIDEGroup.h"

/// A build phase of a target, with its files.
class QVTIDEBuildPhase : public QVTIDEObject {
 public:
  /// Always empty: a phase is created together with its files.
  static std::shared_ptr<QVTIDEBuildPhase> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  /// Build files without a counterpart in `files` are left out. `projectPath` is the project file.
  static std::shared_ptr<QVTIDEBuildPhase>
  initWithBuildPhaseDictionaryObjectIdObjectsDictionaryFilesDictionaryProjectPath(
      const foundation::Dictionary* dictionary, std::string objectId,
      const foundation::Dictionary& objects, const QVTIDEFilesDictionary& files,
      std::string_view projectPath);

  /// The folder of the ".xcodeproj" that contains the project file, else that of the file itself.
  static std::string projectFolderForProjectPath(std::string_view projectPath);
  /// Compares the name, else the path's last component, ignoring case. `folder` is unused.
  static bool isSettingsBundleFileInProjectFolder(const QVTIDEFile& file, std::string_view folder);

  [[nodiscard]] const std::optional<std::string>& buildActionMask() const {
    return buildActionMask_;
  }
  /// From the key "InputPaths".
  [[nodiscard]] const std::optional<foundation::Array>& inputPaths() const { return inputPaths_; }
  [[nodiscard]] const std::optional<foundation::Array>& outputPaths() const { return outputPaths_; }
  [[nodiscard]] const std::optional<std::string>& shellPath() const { return shellPath_; }
  [[nodiscard]] const std::optional<std::string>& shellScript() const { return shellScript_; }
  [[nodiscard]] const std::vector<std::shared_ptr<QVTIDEFile>>& files() const { return files_; }
  /// The first settings bundle among the files; empty without one.
  [[nodiscard]] const std::shared_ptr<QVTIDEFile>& settingsBundle() const {
    return settingsBundle_;
  }

 private:
  QVTIDEBuildPhase(const foundation::Dictionary* dictionary, std::string objectId);
  [[nodiscard]] std::string_view className() const override { return "QVTIDEBuildPhase"; }

  std::optional<std::string> buildActionMask_;
  std::optional<foundation::Array> inputPaths_;
  std::optional<foundation::Array> outputPaths_;
  std::optional<std::string> shellPath_;
  std::optional<std::string> shellScript_;
  std::vector<std::shared_ptr<QVTIDEFile>> files_;
  std::shared_ptr<QVTIDEFile> settingsBundle_;
};

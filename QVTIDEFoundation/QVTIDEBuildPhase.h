#pragma once

#include <string_view>
#include <vector>

#include "QVTIDEFoundation/QVTIDEFile.h"
#include "QVTIDEFoundation/QVTIDEGroup.h"

/// One step of building a target, with the files that it takes.
class QVTIDEBuildPhase : public QVTIDEObject {
 public:
  /// Always empty: a phase is made together with its files.
  static std::shared_ptr<QVTIDEBuildPhase> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  /// Build files that refer to nothing in `files` are left out. `projectPath` is the project
  /// file's.
  static std::shared_ptr<QVTIDEBuildPhase>
  initWithBuildPhaseDictionaryObjectIdObjectsDictionaryFilesDictionaryProjectPath(
      const foundation::Dictionary* dictionary, std::string objectId,
      const foundation::Dictionary& objects, const QVTIDEFilesDictionary& files,
      std::string_view projectPath);

  /// The folder of the project file; the one that holds the ".xcodeproj" when it lies in one.
  static std::string projectFolderForProjectPath(std::string_view projectPath);
  /// By name, else by the last component of the path, in any mix of letter case. The folder makes
  /// no difference.
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
  void append(std::shared_ptr<QVTIDEFile> file, std::string_view projectFolder);

  std::optional<std::string> buildActionMask_;
  std::optional<foundation::Array> inputPaths_;
  std::optional<foundation::Array> outputPaths_;
  std::optional<std::string> shellPath_;
  std::optional<std::string> shellScript_;
  std::vector<std::shared_ptr<QVTIDEFile>> files_;
  std::shared_ptr<QVTIDEFile> settingsBundle_;
};

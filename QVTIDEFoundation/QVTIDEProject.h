#pragma once

#include <vector>

#include "QVTIDEFoundation/QVTIDEGroup.h"
#include "QVTIDEFoundation/QVTIDETarget.h"

/// An Xcode project, read from the property-list file inside its ".xcodeproj" folder.
class QVTIDEProject : public QVTIDEObject {
 public:
  /// Always empty: a project is read from a file.
  static std::shared_ptr<QVTIDEProject> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  /// Empty when the file cannot be read, is not UTF-8 text (so no binary property list) or is not a
  /// property list with a dictionary at the top.
  static std::shared_ptr<QVTIDEProject> initWithProjectPath(std::string path);

  /// Empty when the project has none.
  [[nodiscard]] const std::shared_ptr<QVTIDEGroup>& mainGroup() const { return mainGroup_; }
  [[nodiscard]] const std::vector<std::shared_ptr<QVTIDETarget>>& targets() const {
    return targets_;
  }

  [[nodiscard]] const std::string& projectFile() const { return projectFile_; }
  void setProjectFile(std::string path) { projectFile_ = std::move(path); }

  /// Every group and file below the main group.
  [[nodiscard]] const QVTIDEFilesDictionary& filesDictionary() const { return filesDictionary_; }
  void setFilesDictionary(QVTIDEFilesDictionary files) { filesDictionary_ = std::move(files); }

  /// The raw dictionary of an object; null when there is none.
  [[nodiscard]] const foundation::Dictionary* objectForObjectId(std::string_view objectId) const;

  /// Class, address and project file.
  [[nodiscard]] std::string description() const override;

 private:
  QVTIDEProject(foundation::Dictionary objects, const std::string& rootId, std::string path);
  [[nodiscard]] std::string_view className() const override { return "QVTIDEProject"; }
  void readTargets(const foundation::Dictionary* project);

  foundation::Dictionary objects_;
  std::shared_ptr<QVTIDEGroup> mainGroup_;
  std::vector<std::shared_ptr<QVTIDETarget>> targets_;
  std::string projectFile_;
  QVTIDEFilesDictionary filesDictionary_;
};

#pragma once

#include "QVTIDEFoundation/QVTIDEObject.h"

class QVTIDEProject;

/// A node of the group tree: a group or a file.
class QVTIDESourceTreeObject : public QVTIDEObject {
 public:
  static std::shared_ptr<QVTIDESourceTreeObject> initWithObjectDictionaryObjectId(
      const foundation::Dictionary* dictionary, std::string objectId);

  [[nodiscard]] const std::optional<std::string>& name() const { return name_; }
  [[nodiscard]] const std::optional<std::string>& path() const { return path_; }
  /// What `path` is relative to; `QVTIDEConstants.h` has the known values.
  [[nodiscard]] const std::optional<std::string>& sourceTree() const { return sourceTree_; }

  /// Set by the enclosing group; absent for the main group.
  [[nodiscard]] const std::optional<std::string>& parentGroupObjectId() const {
    return parentGroupObjectId_;
  }
  void setParentGroupObjectId(std::optional<std::string> objectId) {
    parentGroupObjectId_ = std::move(objectId);
  }

  /// `path` below the folder that `environment` (build settings; may be null) has for the source
  /// tree. Absent when either is missing. A path relative to its group is resolved only directly in
  /// the main group, as relative to SOURCE_ROOT; deeper down it is absent, and without a parent (as
  /// in the main group itself) the call is a programming fault.
  [[nodiscard]] std::optional<std::string> absolutePathWithBuildEnvironmentForProject(
      const foundation::Dictionary* environment, const QVTIDEProject& project) const;
  /// True directly in the main group, not further down.
  [[nodiscard]] bool isInMainGroupForProject(const QVTIDEProject& project) const;

 protected:
  QVTIDESourceTreeObject(const foundation::Dictionary* dictionary, std::string objectId);
  [[nodiscard]] std::string_view className() const override { return "QVTIDESourceTreeObject"; }

 private:
  std::optional<std::string> name_;
  std::optional<std::string> path_;
  std::optional<std::string> sourceTree_;
  std::optional<std::string> parentGroupObjectId_;
};

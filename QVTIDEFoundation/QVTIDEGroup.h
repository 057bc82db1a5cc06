#pragma once

#include <functional>
#include <map>
#include <vector>

#include "QVTIDEFoundation/QVTIDESourceTreeObject.h"

/// Groups and files by their object identifiers.
using QVTIDEFilesDictionary =
    std::map<std::string, std::shared_ptr<QVTIDESourceTreeObject>, std::less<>>;

/// A group with all that is below it. Variant groups and everything else that is neither group nor
/// file are left out, and so are a group inside itself and groups more than 512 levels down.
class QVTIDEGroup : public QVTIDESourceTreeObject {
 public:
  using Children = std::vector<std::shared_ptr<QVTIDESourceTreeObject>>;

  /// Always empty: a group is made together with its children.
  static std::shared_ptr<QVTIDEGroup> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  static std::shared_ptr<QVTIDEGroup> initWithGroupDictionaryObjectIdObjectsDictionary(
      const foundation::Dictionary* dictionary, const std::string& objectId,
      const foundation::Dictionary& objects);

  /// `QVTIDEGroup` and `QVTIDEFile` objects in the order of the "children" list. A group that is
  /// listed in two places is an object at each, and the two share their children.
  [[nodiscard]] const Children& children() const { return *children_; }

  /// Everything below this group. Of objects with one identifier the last in the order of the tree
  /// is taken.
  [[nodiscard]] QVTIDEFilesDictionary filesDictionary() const;

  /// Calls `visit` for everything below this group, a group before its children, with the depth (0
  /// for this group's own children). Children that occur in several places are visited in the first
  /// of them only, so that the walk takes linear time in any project.
  void enumerateTree(
      const std::function<void(const QVTIDESourceTreeObject&, int depth)>& visit) const;

 private:
  class Builder;
  QVTIDEGroup(const foundation::Dictionary* dictionary, std::string objectId,
              std::shared_ptr<const Children> children);
  [[nodiscard]] std::string_view className() const override { return "QVTIDEGroup"; }

  std::shared_ptr<const Children> children_;
};

#pragma once

#include <functional>
#include <map>
#include <vector>

#include "QVTIDEFoundation/QVTIDESourceTreeObject.h"

/// Groups and files by their object identifiers.
using QVTIDEFilesDictionary =
    std::map<std::string, std::shared_ptr<QVTIDESourceTreeObject>, std::less<>>;

/// A group with everything below it. Left out are objects that are neither group nor file (variant
/// groups, for example), a group inside itself, and groups more than 512 levels down.
class QVTIDEGroup : public QVTIDESourceTreeObject {
 public:
  using Children = std::vector<std::shared_ptr<QVTIDESourceTreeObject>>;

  /// Always empty: a group is created together with its children.
  static std::shared_ptr<QVTIDEGroup> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  static std::shared_ptr<QVTIDEGroup> initWithGroupDictionaryObjectIdObjectsDictionary(
      const foundation::Dictionary* dictionary, const std::string& objectId,
      const foundation::Dictionary& objects);

  /// `QVTIDEGroup` and `QVTIDEFile` objects in the order of the "children" list. A group that is
  /// listed twice becomes two objects that share their children.
  [[nodiscard]] const Children& children() const { return *children_; }

  /// Everything below this group. If an identifier occurs more than once, the last one wins.
  [[nodiscard]] QVTIDEFilesDictionary filesDictionary() const;

  /// Calls `visit` for everything below this group, a group before its children, with the depth (0
  /// for this group's own children). Shared children are visited only the first time, so that the
  /// walk is linear in the file.
  void enumerateTree(
      const std::function<void(const QVTIDESourceTreeObject&, int depth)>& visit) const;

 private:
  class Builder;
  QVTIDEGroup(const foundation::Dictionary* dictionary, std::string objectId,
              std::shared_ptr<const Children> children);
  [[nodiscard]] std::string_view className() const override { return "QVTIDEGroup"; }

  std::shared_ptr<const Children> children_;
};

#include "QVTIDEFoundation/QVTIDESourceTreeObject.h"

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "QVTIDEFoundation/QVTIDEProject.h"
#include "foundation/base/Assertion.h"
#include "foundation/base/Path.h"

using foundation::Dictionary;

std::shared_ptr<QVTIDESourceTreeObject> QVTIDESourceTreeObject::initWithObjectDictionaryObjectId(
    const Dictionary* dictionary, std::string objectId) {
  return std::shared_ptr<QVTIDESourceTreeObject>(
      new QVTIDESourceTreeObject(dictionary, std::move(objectId)));
}

QVTIDESourceTreeObject::QVTIDESourceTreeObject(const Dictionary* dictionary, std::string objectId)
    : QVTIDEObject(dictionary, std::move(objectId)),
      name_(QVTIDEReading::text(dictionary, QVTIDENameKey)),
      path_(QVTIDEReading::text(dictionary, QVTIDEPathKey)),
      sourceTree_(QVTIDEReading::text(dictionary, QVTIDESourceTreeKey)) {}

bool QVTIDESourceTreeObject::isInMainGroupForProject(const QVTIDEProject& project) const {
  return project.mainGroup() && parentGroupObjectId_ == project.mainGroup()->objectId();
}

std::optional<std::string> QVTIDESourceTreeObject::absolutePathWithBuildEnvironmentForProject(
    const Dictionary* environment, const QVTIDEProject& project) const {
  std::optional<std::string> tree = sourceTree_;
  if (tree == QVTIDESourceTreeRelativeToGroup && isInMainGroupForProject(project)) {
    tree = QVTIDESourceTreeRelativeToProject;
  }
  if (tree == QVTIDESourceTreeAbsolutePath) return path_;
  if (tree == QVTIDESourceTreeRelativeToGroup) {
    foundation::assertThat(parentGroupObjectId_.has_value(), "self.parentGroupObjectId != nil",
                           {.function = {},
                            .source = "QVTIDEFoundation/QVTIDEFoundation/QVTIDESourceTreeObject",
                            .line = 0});
    // The project has only the parent's raw dictionary, which cannot be resolved further.
    return std::nullopt;
  }
  if (!environment || !tree) return std::nullopt;
  auto root = foundation::stringAt(*environment, *tree);
  if (!root || !path_) return root;
  return foundation::appendingPathComponent(*root, *path_);
}

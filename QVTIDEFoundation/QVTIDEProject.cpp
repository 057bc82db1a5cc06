#include "QVTIDEFoundation/QVTIDEProject.h"

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"

namespace {

using foundation::Dictionary;

std::optional<Dictionary> projectDictionary(const std::string& path) {
  const auto content = foundation::FileManager::contentsOfFile(path);
  if (!content || !foundation::isUTF8(content->text())) return std::nullopt;
  return foundation::PropertyList::dictionaryWithContentsOfFile(path);
}

Dictionary takeDictionary(Dictionary& from, std::string_view key) {
  const auto entry = from.find(key);
  if (entry == from.end() || !entry->second.dictionary()) return {};
  return std::move(*entry->second.dictionary());
}

}  // namespace

std::shared_ptr<QVTIDEProject> QVTIDEProject::initWithProjectPath(std::string path) {
  auto dictionary = projectDictionary(path);
  if (!dictionary) return nullptr;
  const std::string rootId = foundation::stringAt(*dictionary, QVTIDERootObjectKey).value_or("");
  return std::shared_ptr<QVTIDEProject>(
      new QVTIDEProject(takeDictionary(*dictionary, "objects"), rootId, std::move(path)));
}

QVTIDEProject::QVTIDEProject(Dictionary objects, const std::string& rootId, std::string path)
    : QVTIDEObject(foundation::dictionaryAt(objects, rootId), rootId),
      objects_(std::move(objects)),
      projectFile_(std::move(path)) {
  const Dictionary* project = objectForObjectId(rootId);
  const auto mainGroupId = QVTIDEReading::text(project, "mainGroup");
  if (mainGroupId && objects_.contains(*mainGroupId)) {
    mainGroup_ = QVTIDEGroup::initWithGroupDictionaryObjectIdObjectsDictionary(
        objectForObjectId(*mainGroupId), *mainGroupId, objects_);
    filesDictionary_ = mainGroup_->filesDictionary();
  }
  readTargets(project);
}

void QVTIDEProject::readTargets(const Dictionary* project) {
  const auto* ids = QVTIDEReading::array(project, "targets");
  if (!ids) return;
  QVTIDETarget::PhasesById phases;
  std::map<std::string, std::shared_ptr<QVTIDETarget>, std::less<>> known;
  for (const foundation::Value& id : *ids) {
    if (!id.string()) continue;
    auto& target = known[*id.string()];
    if (!target) {
      target =
          QVTIDETarget::initWithTargetIdObjectsDictionaryFilesDictionaryRootObjectKeyProjectPath(
              *id.string(), objects_, filesDictionary_, objectId(), projectFile_, &phases);
    }
    targets_.push_back(target);
  }
}

const Dictionary* QVTIDEProject::objectForObjectId(std::string_view objectId) const {
  return foundation::dictionaryAt(objects_, objectId);
}

std::string QVTIDEProject::description() const {
  return QVTIDEObject::description() + " " + projectFile_;
}

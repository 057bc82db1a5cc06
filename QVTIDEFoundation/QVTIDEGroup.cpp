#include "QVTIDEFoundation/QVTIDEGroup.h"

#include <set>

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "QVTIDEFoundation/QVTIDEFile.h"

namespace {

using foundation::Dictionary;
using Children = QVTIDEGroup::Children;
using SeenChildren = std::set<const Children*>;

constexpr int kDeepestGroup = 512;

const QVTIDEGroup* asGroup(const std::shared_ptr<QVTIDESourceTreeObject>& object) {
  return dynamic_cast<const QVTIDEGroup*>(object.get());
}

/// Walks backwards and keeps the first object of each identifier, so that the last one wins even
/// though shared children are visited only once.
void collect(const Children& children, QVTIDEFilesDictionary& files, SeenChildren& seen) {
  if (!seen.insert(&children).second) return;
  for (auto child = children.rbegin(); child != children.rend(); ++child) {
    if (const auto* group = asGroup(*child)) collect(group->children(), files, seen);
    files.emplace((*child)->objectId(), *child);
  }
}

void enumerate(const Children& children, int depth, SeenChildren& seen,
               const std::function<void(const QVTIDESourceTreeObject&, int)>& visit) {
  if (!seen.insert(&children).second) return;
  for (const auto& child : children) {
    visit(*child, depth);
    if (const auto* group = asGroup(child)) enumerate(group->children(), depth + 1, seen, visit);
  }
}

}  // namespace

/// Builds a group tree. Each identifier's list of children is built once and shared, however many
/// references the file has.
class QVTIDEGroup::Builder {
 public:
  explicit Builder(const Dictionary& objects) : objects_(objects) {}

  std::shared_ptr<QVTIDEGroup> group(const Dictionary* dictionary, const std::string& id) {
    return std::shared_ptr<QVTIDEGroup>(new QVTIDEGroup(dictionary, id, children(dictionary, id)));
  }

 private:
  std::shared_ptr<const Children> children(const Dictionary* dictionary, const std::string& id) {
    const auto known = known_.find(id);
    if (known != known_.end()) return known->second;
    open_.insert(id);
    auto result = std::make_shared<Children>();
    if (const auto* list = QVTIDEReading::array(dictionary, "children")) {
      for (const foundation::Value& entry : *list) {
        auto child = entry.string() ? made(*entry.string()) : nullptr;
        if (!child) continue;
        child->setParentGroupObjectId(id);
        result->push_back(std::move(child));
      }
    }
    open_.erase(id);
    known_.emplace(id, result);
    return result;
  }

  std::shared_ptr<QVTIDESourceTreeObject> made(const std::string& id) {
    const Dictionary* dictionary = foundation::dictionaryAt(objects_, id);
    const auto type = isaToType(QVTIDEReading::text(dictionary, QVTIsaKey));
    if (type == QVTIDEObjectType::fileReference) {
      return QVTIDEFile::initWithObjectDictionaryObjectId(dictionary, id);
    }
    const bool mayEnter = !open_.contains(id) && open_.size() < kDeepestGroup;
    if (type == QVTIDEObjectType::group && mayEnter) return group(dictionary, id);
    return nullptr;
  }

  const Dictionary& objects_;
  std::map<std::string, std::shared_ptr<const Children>, std::less<>> known_;
  std::set<std::string, std::less<>> open_;
};

QVTIDEGroup::QVTIDEGroup(const Dictionary* dictionary, std::string objectId,
                         std::shared_ptr<const Children> children)
    : QVTIDESourceTreeObject(dictionary, std::move(objectId)), children_(std::move(children)) {}

std::shared_ptr<QVTIDEGroup> QVTIDEGroup::initWithGroupDictionaryObjectIdObjectsDictionary(
    const Dictionary* dictionary, const std::string& objectId, const Dictionary& objects) {
  return Builder(objects).group(dictionary, objectId);
}

QVTIDEFilesDictionary QVTIDEGroup::filesDictionary() const {
  QVTIDEFilesDictionary files;
  SeenChildren seen;
  collect(*children_, files, seen);
  return files;
}

void QVTIDEGroup::enumerateTree(
    const std::function<void(const QVTIDESourceTreeObject&, int depth)>& visit) const {
  SeenChildren seen;
  enumerate(*children_, 0, seen, visit);
}

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

/// What an object of a project file is, by its "isa". No class has the number 6; every class that
/// is not listed, shell-script phases among them, is `other`.
enum class QVTIDEObjectType : int {
  nativeTarget = 0,
  project = 1,
  group = 2,
  buildFile = 3,
  fileReference = 4,
  resourcesBuildPhase = 5,
  sourcesBuildPhase = 7,
  variantGroup = 8,
  buildConfiguration = 9,
  configurationList = 10,
  frameworksBuildPhase = 11,
  aggregateTarget = 12,
  containerItemProxy = 13,
  targetDependency = 14,
  other = 1000,
};

/// An object of an Xcode project file. All of the model is read-only but for the few setters, and
/// safe to read from several threads. An object whose identifier leads nowhere has an absent
/// dictionary: it exists, and all its properties are absent.
class QVTIDEObject {
 public:
  /// Always empty: an object is made from a dictionary.
  static std::shared_ptr<QVTIDEObject> init() { return nullptr; }
  /// `dictionary` may be null.
  static std::shared_ptr<QVTIDEObject> initWithObjectDictionaryObjectId(
      const foundation::Dictionary* dictionary, std::string objectId);

  virtual ~QVTIDEObject() = default;
  QVTIDEObject(const QVTIDEObject&) = delete;
  QVTIDEObject& operator=(const QVTIDEObject&) = delete;

  /// By the exact class name; an absent one is `other`.
  static QVTIDEObjectType isaToType(const std::optional<std::string>& isa);

  [[nodiscard]] const std::string& objectId() const { return objectId_; }
  [[nodiscard]] QVTIDEObjectType type() const { return type_; }
  /// Class name and address; subclasses add a detail.
  [[nodiscard]] virtual std::string description() const;

 protected:
  QVTIDEObject(const foundation::Dictionary* dictionary, std::string objectId);
  [[nodiscard]] virtual std::string_view className() const { return "QVTIDEObject"; }

 private:
  std::string objectId_;
  QVTIDEObjectType type_ = QVTIDEObjectType::other;
};

/// Reading of raw project dictionaries; each takes null for an absent dictionary.
namespace QVTIDEReading {

std::optional<std::string> text(const foundation::Dictionary* dictionary, std::string_view key);
/// Null when the key is missing or leads to no array.
const foundation::Array* array(const foundation::Dictionary* dictionary, std::string_view key);
/// The object with this identifier; null when it is missing or no dictionary.
const foundation::Dictionary* object(const foundation::Dictionary& objects, std::string_view id);

}  // namespace QVTIDEReading

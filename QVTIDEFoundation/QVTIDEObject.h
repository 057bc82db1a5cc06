#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

/// The type of a project file's object, from its "isa". Unlisted classes, such as shell-script
/// phases, are `other`; 6 is unused.
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

/// An object of an Xcode project file. The model is read-only except for a few setters, so threads
/// may share it. An object whose identifier is dangling exists with all properties absent.
class QVTIDEObject {
 public:
  /// Always empty: an object needs a dictionary.
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

/// Lookups in raw project dictionaries, which may be null.
namespace QVTIDEReading {

std::optional<std::string> text(const foundation::Dictionary* dictionary, std::string_view key);
/// Null when the value is missing or not an array.
const foundation::Array* array(const foundation::Dictionary* dictionary, std::string_view key);

}  // namespace QVTIDEReading

#include "QVTIDEFoundation/QVTIDEObject.h"

#include <array>

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "foundation/base/Format.h"

namespace {

using Type = QVTIDEObjectType;

constexpr std::array<std::pair<std::string_view, Type>, 14> kTypes{{
    {"PBXNativeTarget", Type::nativeTarget},
    {"PBXProject", Type::project},
    {"PBXGroup", Type::group},
    {"PBXBuildFile", Type::buildFile},
    {"PBXFileReference", Type::fileReference},
    {"PBXResourcesBuildPhase", Type::resourcesBuildPhase},
    {"PBXSourcesBuildPhase", Type::sourcesBuildPhase},
    {"PBXVariantGroup", Type::variantGroup},
    {"XCBuildConfiguration", Type::buildConfiguration},
    {"XCConfigurationList", Type::configurationList},
    {"PBXFrameworksBuildPhase", Type::frameworksBuildPhase},
    {"PBXAggregateTarget", Type::aggregateTarget},
    {"PBXContainerItemProxy", Type::containerItemProxy},
    {"PBXTargetDependency", Type::targetDependency},
}};

}  // namespace

std::shared_ptr<QVTIDEObject> QVTIDEObject::initWithObjectDictionaryObjectId(
    const foundation::Dictionary* dictionary, std::string objectId) {
  return std::shared_ptr<QVTIDEObject>(new QVTIDEObject(dictionary, std::move(objectId)));
}

QVTIDEObject::QVTIDEObject(const foundation::Dictionary* dictionary, std::string objectId)
    : objectId_(std::move(objectId)),
      type_(isaToType(QVTIDEReading::text(dictionary, QVTIsaKey))) {}

QVTIDEObjectType QVTIDEObject::isaToType(const std::optional<std::string>& isa) {
  for (const auto& [name, type] : kTypes) {
    if (isa == name) return type;
  }
  return Type::other;
}

std::string QVTIDEObject::description() const {
  return foundation::format("<%@: %p>", className(), static_cast<const void*>(this));
}

namespace QVTIDEReading {

std::optional<std::string> text(const foundation::Dictionary* dictionary, std::string_view key) {
  return dictionary ? foundation::stringAt(*dictionary, key) : std::nullopt;
}

const foundation::Array* array(const foundation::Dictionary* dictionary, std::string_view key) {
  return dictionary ? foundation::arrayAt(*dictionary, key) : nullptr;
}

}  // namespace QVTIDEReading

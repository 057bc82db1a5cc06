#include "QVTIDEFoundation/QVTIDETarget.h"

#include <algorithm>

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "foundation/process/SystemLog.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;

bool namesSDK(const Dictionary* settings) {
  return settings && settings->contains(QVTIDESourceTreeRelativeToSDK);
}

}  // namespace

QVTIDETarget::QVTIDETarget(const Dictionary* dictionary, std::string objectId)
    : QVTIDEObject(dictionary, std::move(objectId)),
      name_(QVTIDEReading::text(dictionary, QVTIDENameKey)),
      productName_(QVTIDEReading::text(dictionary, "productName")),
      productType_(QVTIDEReading::text(dictionary, "productType")) {}

std::shared_ptr<QVTIDETarget>
QVTIDETarget::initWithTargetIdObjectsDictionaryFilesDictionaryRootObjectKeyProjectPath(
    std::string targetId, const Dictionary& objects, const QVTIDEFilesDictionary& files,
    std::string_view rootObjectKey, std::string_view projectPath, PhasesById* known) {
  const Dictionary* dictionary = foundation::dictionaryAt(objects, targetId);
  std::shared_ptr<QVTIDETarget> target(new QVTIDETarget(dictionary, std::move(targetId)));
  PhasesById own;
  PhasesById& phases = known ? *known : own;
  if (const Array* ids = QVTIDEReading::array(dictionary, "buildPhases")) {
    for (const Value& id : *ids) {
      if (!id.string()) continue;
      auto& phase = phases[*id.string()];
      if (!phase) {
        phase = QVTIDEBuildPhase::
            initWithBuildPhaseDictionaryObjectIdObjectsDictionaryFilesDictionaryProjectPath(
                foundation::dictionaryAt(objects, *id.string()), *id.string(), objects, files,
                projectPath);
      }
      if (!target->buildPhases_) target->buildPhases_.emplace();
      if (!target->settingBundle_) target->settingBundle_ = phase->settingsBundle();
      target->buildPhases_->push_back(phase);
    }
  }
  target->targetAppType_ = target->targetAppTypeForObjectsDictionaryTargetDictionaryRootObjectKey(
      objects, dictionary, rootObjectKey);
  return target;
}

std::shared_ptr<QVTIDEBuildPhase> QVTIDETarget::firstBuildPhaseWithType(
    QVTIDEObjectType type) const {
  if (!buildPhases_) return nullptr;
  const auto phase = std::ranges::find_if(
      *buildPhases_, [type](const auto& candidate) { return candidate->type() == type; });
  return phase == buildPhases_->end() ? nullptr : *phase;
}

const Dictionary* QVTIDETarget::buildSettingsForTargetObjectObjectsDictionary(
    const Dictionary* targetObject, const Dictionary& objects) const {
  const auto lacks = [this](const void* found, std::string_view step) {
    if (!found)
      foundation::systemLog("XCode Project Target Parsing failed: %@ for Target:%@", step, name_);
    return !found;
  };
  const Value* listId =
      targetObject ? foundation::find(*targetObject, "buildConfigurationList") : nullptr;
  if (lacks(listId, "QVTBuildConfigurationList")) return nullptr;
  if (lacks(listId->string(), "QVTBuildConfigurationList String Check")) return nullptr;
  const Value* list = foundation::find(objects, *listId->string());
  if (lacks(list, "QVTBuildConfigurationList Keys Check")) return nullptr;
  if (lacks(list->dictionary(), "BuildConfigurationList Dictionary Check")) return nullptr;
  const Value* ids = list->find("buildConfigurations");
  if (lacks(ids, "BuildConfigurationList Key Check")) return nullptr;
  if (lacks(ids->array(), "BuildConfigurations Array Check")) return nullptr;
  const Value* firstId = ids->array()->empty() ? nullptr : &ids->array()->front();
  if (lacks(firstId, "BuildConfigurations Array Count Check")) return nullptr;
  if (lacks(firstId->string(), "FirstBuildConfigurations String Check")) return nullptr;
  const Value* first = foundation::find(objects, *firstId->string());
  if (lacks(first, "FirstBuildConfigurations Key Check")) return nullptr;
  if (lacks(first->dictionary(), "DictionaryOfFirstBuildConfigurations Dictionary Check")) {
    return nullptr;
  }
  const Value* settings = first->find("buildSettings");
  if (lacks(settings, "QVTBuildSettings Check")) return nullptr;
  if (lacks(settings->dictionary(), "QVTBuildSettings Dictionary Check")) return nullptr;
  return settings->dictionary();
}

QVTIDETargetAppType QVTIDETarget::targetAppTypeForObjectsDictionaryTargetDictionaryRootObjectKey(
    const Dictionary& objects, const Dictionary* targetDictionary,
    std::string_view rootObjectKey) const {
  const auto* settings = buildSettingsForTargetObjectObjectsDictionary(targetDictionary, objects);
  if (namesSDK(settings)) return targetAppTypeForBuildSettingsDictionary(*settings);
  const Dictionary* project = foundation::dictionaryAt(objects, rootObjectKey);
  if (!project) return QVTIDETargetAppType::unknown;
  settings = buildSettingsForTargetObjectObjectsDictionary(project, objects);
  return namesSDK(settings) ? targetAppTypeForBuildSettingsDictionary(*settings)
                            : QVTIDETargetAppType::unknown;
}

QVTIDETargetAppType QVTIDETarget::targetAppTypeForBuildSettingsDictionary(
    const Dictionary& settings) {
  const auto sdk = foundation::stringAt(settings, QVTIDESourceTreeRelativeToSDK);
  if (sdk == "macosx") return QVTIDETargetAppType::mac;
  return sdk == "iphoneos" ? QVTIDETargetAppType::iphone : QVTIDETargetAppType::unknown;
}

std::string QVTIDETarget::description() const {
  return QVTIDEObject::description() + " " + name_.value_or("(null)");
}

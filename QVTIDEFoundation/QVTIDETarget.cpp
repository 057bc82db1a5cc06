#include "QVTIDEFoundation/QVTIDETarget.h"

#include <algorithm>

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "foundation/process/SystemLog.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;

/// Follows the references from a target to its settings. Logs the first step that fails and stops.
class SettingsReader {
 public:
  SettingsReader(const std::optional<std::string>& targetName, const Dictionary& objects)
      : targetName_(targetName), objects_(objects) {}

  const Dictionary* read(const Dictionary* owner) {
    const Dictionary* list = listOf(owner);
    const Dictionary* configuration = list ? firstConfiguration(*list) : nullptr;
    return configuration ? settingsOf(*configuration) : nullptr;
  }

 private:
  template <class T>
  const T* checked(const T* found, std::string_view step) const {
    if (!found) {
      foundation::systemLog("XCode Project Target Parsing failed: %@ for Target:%@", step,
                            targetName_);
    }
    return found;
  }

  const Dictionary* listOf(const Dictionary* owner) const {
    const Value* id = owner ? foundation::find(*owner, "buildConfigurationList") : nullptr;
    if (!checked(id, "QVTBuildConfigurationList")) return nullptr;
    if (!checked(id->string(), "QVTBuildConfigurationList String Check")) return nullptr;
    const Value* list = foundation::find(objects_, *id->string());
    if (!checked(list, "QVTBuildConfigurationList Keys Check")) return nullptr;
    return checked(list->dictionary(), "BuildConfigurationList Dictionary Check");
  }

  const Dictionary* firstConfiguration(const Dictionary& list) const {
    const Value* entries = foundation::find(list, "buildConfigurations");
    if (!checked(entries, "BuildConfigurationList Key Check")) return nullptr;
    const Array* ids = checked(entries->array(), "BuildConfigurations Array Check");
    if (!ids) return nullptr;
    const Value* first = ids->empty() ? nullptr : &ids->front();
    if (!checked(first, "BuildConfigurations Array Count Check")) return nullptr;
    if (!checked(first->string(), "FirstBuildConfigurations String Check")) return nullptr;
    const Value* configuration = foundation::find(objects_, *first->string());
    if (!checked(configuration, "FirstBuildConfigurations Key Check")) return nullptr;
    return checked(configuration->dictionary(),
                   "DictionaryOfFirstBuildConfigurations Dictionary Check");
  }

  const Dictionary* settingsOf(const Dictionary& configuration) const {
    const Value* settings = foundation::find(configuration, "buildSettings");
    if (!checked(settings, "QVTBuildSettings Check")) return nullptr;
    return checked(settings->dictionary(), "QVTBuildSettings Dictionary Check");
  }

  const std::optional<std::string>& targetName_;
  const Dictionary& objects_;
};

bool namesSDK(const Dictionary* settings) {
  return settings && settings->contains(QVTIDESourceTreeRelativeToSDK);
}

std::shared_ptr<QVTIDEBuildPhase> phaseWithId(const std::string& id, const Dictionary& objects,
                                              const QVTIDEFilesDictionary& files,
                                              std::string_view projectPath) {
  return QVTIDEBuildPhase::
      initWithBuildPhaseDictionaryObjectIdObjectsDictionaryFilesDictionaryProjectPath(
          QVTIDEReading::object(objects, id), id, objects, files, projectPath);
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
  const Dictionary* dictionary = QVTIDEReading::object(objects, targetId);
  std::shared_ptr<QVTIDETarget> target(new QVTIDETarget(dictionary, std::move(targetId)));
  PhasesById own;
  PhasesById& phases = known ? *known : own;
  if (const Array* ids = QVTIDEReading::array(dictionary, "buildPhases")) {
    for (const Value& id : *ids) {
      if (!id.string()) continue;
      auto& phase = phases[*id.string()];
      if (!phase) phase = phaseWithId(*id.string(), objects, files, projectPath);
      target->append(phase);
    }
  }
  target->targetAppType_ = target->targetAppTypeForObjectsDictionaryTargetDictionaryRootObjectKey(
      objects, dictionary, rootObjectKey);
  return target;
}

void QVTIDETarget::append(std::shared_ptr<QVTIDEBuildPhase> phase) {
  if (!buildPhases_) buildPhases_.emplace();
  if (!settingBundle_) settingBundle_ = phase->settingsBundle();
  buildPhases_->push_back(std::move(phase));
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
  return SettingsReader(name_, objects).read(targetObject);
}

QVTIDETargetAppType QVTIDETarget::targetAppTypeForObjectsDictionaryTargetDictionaryRootObjectKey(
    const Dictionary& objects, const Dictionary* targetDictionary,
    std::string_view rootObjectKey) const {
  const auto* settings = buildSettingsForTargetObjectObjectsDictionary(targetDictionary, objects);
  if (namesSDK(settings)) return targetAppTypeForBuildSettingsDictionary(*settings);
  const Dictionary* project = QVTIDEReading::object(objects, rootObjectKey);
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

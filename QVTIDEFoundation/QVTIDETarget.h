#pragma once

#include <vector>

#include "QVTIDEFoundation/QVTIDEBuildPhase.h"

/// The platform of a target's SDK.
enum class QVTIDETargetAppType : int { mac = 0, iphone = 1, unknown = 2 };

/// A target of a project.
class QVTIDETarget : public QVTIDEObject {
 public:
  using PhasesById = std::map<std::string, std::shared_ptr<QVTIDEBuildPhase>, std::less<>>;

  /// Always empty: a target is created together with its phases.
  static std::shared_ptr<QVTIDETarget> initWithObjectDictionaryObjectId(
      const foundation::Dictionary*, const std::string&) {
    return nullptr;
  }
  /// Never empty; a target that is missing from `objects` has absent properties. `rootObjectKey` is
  /// the identifier of the project object. `known` caches phases, so that a shared phase is read
  /// once.
  static std::shared_ptr<QVTIDETarget>
  initWithTargetIdObjectsDictionaryFilesDictionaryRootObjectKeyProjectPath(
      std::string targetId, const foundation::Dictionary& objects,
      const QVTIDEFilesDictionary& files, std::string_view rootObjectKey,
      std::string_view projectPath, PhasesById* known = nullptr);

  [[nodiscard]] const std::optional<std::string>& name() const { return name_; }
  [[nodiscard]] const std::optional<std::string>& productName() const { return productName_; }
  [[nodiscard]] const std::optional<std::string>& productType() const { return productType_; }
  /// Absent when the target has no list of phases or an empty one.
  [[nodiscard]] const std::optional<std::vector<std::shared_ptr<QVTIDEBuildPhase>>>& buildPhases()
      const {
    return buildPhases_;
  }
  /// The first settings bundle in the phases; empty without one.
  [[nodiscard]] const std::shared_ptr<QVTIDEFile>& settingBundle() const { return settingBundle_; }
  [[nodiscard]] QVTIDETargetAppType targetAppType() const { return targetAppType_; }

  /// The first phase of this type; empty without one.
  [[nodiscard]] std::shared_ptr<QVTIDEBuildPhase> firstBuildPhaseWithType(
      QVTIDEObjectType type) const;

  /// The build settings of the first configuration of a target or project (which may be null).
  /// Null, with a line in the system log that names the failed step, when there are none. `objects`
  /// owns the dictionary.
  [[nodiscard]] const foundation::Dictionary* buildSettingsForTargetObjectObjectsDictionary(
      const foundation::Dictionary* targetObject, const foundation::Dictionary& objects) const;

  /// By the SDK of the target's own settings, else of the project's.
  [[nodiscard]] QVTIDETargetAppType targetAppTypeForObjectsDictionaryTargetDictionaryRootObjectKey(
      const foundation::Dictionary& objects, const foundation::Dictionary* targetDictionary,
      std::string_view rootObjectKey) const;
  [[nodiscard]] static QVTIDETargetAppType targetAppTypeForBuildSettingsDictionary(
      const foundation::Dictionary& settings);

  /// Class, address and name.
  [[nodiscard]] std::string description() const override;

 private:
  QVTIDETarget(const foundation::Dictionary* dictionary, std::string objectId);
  [[nodiscard]] std::string_view className() const override { return "QVTIDETarget"; }

  std::optional<std::string> name_;
  std::optional<std::string> productName_;
  std::optional<std::string> productType_;
  std::optional<std::vector<std::shared_ptr<QVTIDEBuildPhase>>> buildPhases_;
  std::shared_ptr<QVTIDEFile> settingBundle_;
  QVTIDETargetAppType targetAppType_ = QVTIDETargetAppType::unknown;
};

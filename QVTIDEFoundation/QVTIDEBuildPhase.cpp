#include "QVTIDEFoundation/QVTIDEBuildPhase.h"

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"

namespace {

using foundation::Array;
using foundation::Dictionary;

constexpr std::string_view kSettingsBundle = "settings.bundle";

std::optional<Array> copiedArray(const Dictionary* dictionary, std::string_view key) {
  const Array* array = QVTIDEReading::array(dictionary, key);
  return array ? std::optional(*array) : std::nullopt;
}

/// The file that a phase's build file refers to; empty when any reference on the way is dangling.
std::shared_ptr<QVTIDEFile> referencedFile(const foundation::Value& buildFileId,
                                           const Dictionary& objects,
                                           const QVTIDEFilesDictionary& files) {
  const std::string* id = buildFileId.string();
  const Dictionary* buildFile = id ? foundation::dictionaryAt(objects, *id) : nullptr;
  const auto reference = QVTIDEReading::text(buildFile, "fileRef");
  const auto entry = reference ? files.find(*reference) : files.end();
  return entry == files.end() ? nullptr : std::dynamic_pointer_cast<QVTIDEFile>(entry->second);
}

}  // namespace

QVTIDEBuildPhase::QVTIDEBuildPhase(const Dictionary* dictionary, std::string objectId)
    : QVTIDEObject(dictionary, std::move(objectId)),
      buildActionMask_(QVTIDEReading::text(dictionary, "buildActionMask")),
      inputPaths_(copiedArray(dictionary, "InputPaths")),
      outputPaths_(copiedArray(dictionary, "outputPaths")),
      shellPath_(QVTIDEReading::text(dictionary, "shellPath")),
      shellScript_(QVTIDEReading::text(dictionary, "shellScript")) {}

std::shared_ptr<QVTIDEBuildPhase>
QVTIDEBuildPhase::initWithBuildPhaseDictionaryObjectIdObjectsDictionaryFilesDictionaryProjectPath(
    const Dictionary* dictionary, std::string objectId, const Dictionary& objects,
    const QVTIDEFilesDictionary& files, std::string_view projectPath) {
  std::shared_ptr<QVTIDEBuildPhase> phase(new QVTIDEBuildPhase(dictionary, std::move(objectId)));
  const std::string folder = projectFolderForProjectPath(projectPath);
  if (const Array* list = QVTIDEReading::array(dictionary, "files")) {
    for (const foundation::Value& id : *list) {
      auto file = referencedFile(id, objects, files);
      if (!file) continue;
      if (!phase->settingsBundle_ && isSettingsBundleFileInProjectFolder(*file, folder)) {
        phase->settingsBundle_ = file;
      }
      phase->files_.push_back(std::move(file));
    }
  }
  return phase;
}

std::string QVTIDEBuildPhase::projectFolderForProjectPath(std::string_view projectPath) {
  std::string folder = foundation::deletingLastPathComponent(projectPath);
  if (folder.ends_with(".xcodeproj")) folder = foundation::deletingLastPathComponent(folder);
  return folder;
}

bool QVTIDEBuildPhase::isSettingsBundleFileInProjectFolder(const QVTIDEFile& file,
                                                           std::string_view /*folder*/) {
  const std::string name =
      file.name() ? *file.name() : foundation::lastPathComponent(file.path().value_or(""));
  return foundation::lowercased(name) == kSettingsBundle;
}

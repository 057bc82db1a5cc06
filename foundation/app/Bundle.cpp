#include "foundation/app/Bundle.h"

#include <algorithm>
#include <cerrno>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"
#include "foundation/host/Host.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"

namespace foundation {

namespace {

/// Not about the file itself.
bool isOfTheMachine(long error) {
  return error == EIO || error == EMFILE || error == ENFILE || error == ENOMEM;
}

/// Throws rather than let callers continue with a half-described app.
Dictionary infoOfBundle(const std::string& path) {
  for (const char* const name : {"Info.plist", "Contents/Info.plist"}) {
    const std::string file = appendingPathComponent(path, name);
    if (!FileManager::isUsableInsideDirectory(file, path)) continue;
    const auto content = FileManager::contentsOfFile(file);
    if (!content && isOfTheMachine(content.error().code)) {
      throw Exception(content.error().localizedDescription());
    }
    if (!content || content->empty()) continue;
    auto info = PropertyList::parse(content->bytes());
    if (info && info->dictionary()) return std::move(*info->dictionary());
  }
  return {};
}

/// True when no component of the name leads out of the bundle.
bool staysInside(std::string_view name) {
  const std::vector<std::string> components = split(name, '/');
  return std::find(components.begin(), components.end(), "..") == components.end();
}

}  // namespace

std::shared_ptr<Bundle> Bundle::bundleWithPath(std::string_view path) {
  if (!FileManager::isDirectoryAtPath(path)) return nullptr;
  std::shared_ptr<Bundle> bundle(new Bundle);
  bundle->path_ = withoutTrailingSlashes(path);
  bundle->info_ = infoOfBundle(bundle->path_);
  return bundle;
}

const Bundle& Bundle::mainBundle() {
  static const Bundle bundle = [] {
    Bundle main;
    main.path_ = deletingLastPathComponent(ProcessInfo::executablePath());
    if (auto info = PropertyList::parse(host::embeddedInfo()); info && info->dictionary()) {
      main.info_ = std::move(*info->dictionary());
    }
    return main;
  }();
  return bundle;
}

const Value* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  return find(info_, key);
}

std::optional<std::string> Bundle::bundleIdentifier() const {
  return stringAt(info_, "CFBundleIdentifier");
}

std::optional<std::string> Bundle::executablePath() const {
  const std::string name = stringAt(info_, "CFBundleExecutable")
                               .value_or(deletingPathExtension(lastPathComponent(path_)));
  if (name.empty()) return std::nullopt;
  if (!staysInside(name)) {
    systemLogOnce("the executable " + name + " leads out of " + path_ + " and is not used");
    return std::nullopt;
  }
  for (const std::string& folder : {path_, appendingPathComponent(path_, "Contents/MacOS")}) {
    std::string file = appendingPathComponent(folder, name);
    if (FileManager::isUsableInsideDirectory(file, path_) &&
        !FileManager::isDirectoryAtPath(file)) {
      return file;
    }
  }
  return std::nullopt;
}

}  // namespace foundation

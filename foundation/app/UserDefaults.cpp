#include "foundation/app/UserDefaults.h"

#include <algorithm>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/format/PropertyList.h"

namespace foundation {

namespace {

bool isOption(const std::string& element) { return element.starts_with('-'); }

}  // namespace

UserDefaults& UserDefaults::standardUserDefaults() {
  static UserDefaults defaults;
  return defaults;
}

void UserDefaults::setArguments(const std::vector<std::string>& arguments) {
  Dictionary pairs;
  for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
    if (!isOption(arguments[i]) || arguments[i].size() == 1 || isOption(arguments[i + 1])) continue;
    pairs.insert_or_assign(arguments[i].substr(1), Value(arguments[i + 1]));
  }
  const std::lock_guard lock(mutex_);
  arguments_ = std::move(pairs);
}

void UserDefaults::addSuiteNamed(std::string_view name) {
  const std::lock_guard lock(mutex_);
  if (std::find(suites_.begin(), suites_.end(), name) == suites_.end()) suites_.emplace_back(name);
}

std::optional<Value> UserDefaults::objectForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  if (const Value* const argument = find(arguments_, key)) return *argument;
  for (const std::string& suite : suites_) {
    const std::string folder =
        appendingPathComponent(FileManager::homeDirectory(), "Library/Preferences");
    const auto preferences = PropertyList::dictionaryWithContentsOfFile(
        appendingPathComponent(folder, suite + ".plist"));
    const Value* const value = preferences ? find(*preferences, key) : nullptr;
    if (value) return *value;
  }
  return std::nullopt;
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
  const std::optional<Value> value = objectForKey(key);
  if (!value || !value->string()) return std::nullopt;
  return *value->string();
}

}  // namespace foundation

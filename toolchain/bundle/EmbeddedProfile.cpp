#include "toolchain/bundle/EmbeddedProfile.h"

#include "foundation/crypto/ProfileFile.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;

Result<EmbeddedProfile> readProfile(const std::filesystem::path& path) {
  const auto file = foundation::FileManager::contentsOfFile(path, foundation::Links::refused);
  if (!file) return file.error();
  // The signature says nothing here: the system that installs the app checks it.
  const auto text = foundation::propertyListInProfile(file->text());
  if (!text) return failure(path.string() + ": no property list in the profile");
  auto value = foundation::PropertyList::parse(foundation::bytesOf(*text));
  if (!value) return within(path.string(), value.error());
  if (!value->dictionary()) return failure(path.string() + ": the profile is no dictionary");
  EmbeddedProfile profile;
  profile.dictionary = std::move(*value->dictionary());
  profile.certificates = foundation::developerCertificatesIn(profile.dictionary);
  return profile;
}

/// "TEAM.*" or "TEAM.com.example.*" for one identifier. Absent for a pattern that this identifier
/// does not fit, and for one that is nothing but a wildcard.
std::optional<Value> exactText(const std::string& pattern, const std::string& identifier) {
  if (pattern == "*") return std::nullopt;
  if (!pattern.ends_with(".*")) return Value(pattern);
  const auto prefix = pattern.find('.') + 1;
  const auto start = std::string_view(pattern).substr(prefix, pattern.size() - prefix - 1);
  if (!identifier.starts_with(start)) return std::nullopt;
  return Value(pattern.substr(0, prefix) + identifier);
}

/// A pattern's value for one identifier; absent where there is none.
std::optional<Value> concrete(const Value& value, const std::string& identifier) {
  if (const std::string* text = value.string()) return exactText(*text, identifier);
  const Array* array = value.array();
  if (!array) return value;
  Array result;
  for (const Value& element : *array) {
    if (auto kept = concrete(element, identifier)) result.push_back(std::move(*kept));
  }
  if (result.empty() && !array->empty()) return std::nullopt;
  return Value(std::move(result));
}

}  // namespace

Result<std::optional<EmbeddedProfile>> embeddedProfileOf(const std::filesystem::path& bundleBase) {
  for (const char* name : {"embedded.mobileprovision", "embedded.provisionprofile"}) {
    const std::filesystem::path path = bundleBase / name;
    if (!foundation::FileManager::fileExistsAtPath(path)) continue;
    std::error_code failed;
    const auto resolved = std::filesystem::canonical(path, failed);
    // What somebody else was granted is not for this code.
    if (failed || !foundation::FileManager::isItemInsideDirectory(resolved, bundleBase)) {
      return failure(path.string() + " is a link that leads out of the bundle");
    }
    auto profile = readProfile(resolved);
    if (!profile) return profile.error();
    return std::optional<EmbeddedProfile>(std::move(*profile));
  }
  return std::optional<EmbeddedProfile>();
}

Dictionary concreteEntitlements(const EmbeddedProfile& profile, const std::string& identifier) {
  Dictionary result;
  const Dictionary* granted = foundation::dictionaryAt(profile.dictionary, "Entitlements");
  for (const auto& [key, value] : granted ? *granted : Dictionary()) {
    if (auto kept = concrete(value, identifier)) result.emplace(key, std::move(*kept));
  }
  return result;
}

}  // namespace toolchain

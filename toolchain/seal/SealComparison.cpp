#include "toolchain/seal/SealComparison.h"

#include <algorithm>
#include <array>
#include <system_error>

#include "foundation/file/FileManager.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/seal/SealContents.h"

namespace toolchain {

namespace {

namespace fs = std::filesystem;

/// Whether an item is what the seal says, as far as the seal says it.
bool isAsSealed(const SealedItem& sealed, const SealedItem& present) {
  if (sealed.linkTarget || present.linkTarget) return sealed.linkTarget == present.linkTarget;
  if (sealed.cdHash || present.cdHash) {
    return sealed.cdHash == present.cdHash && sealed.requirement == present.requirement;
  }
  if (!sealed.sha1 && !sealed.sha256) return false;
  return (!sealed.sha1 || sealed.sha1 == present.sha1) &&
         (!sealed.sha256 || sealed.sha256 == present.sha256);
}

/// Any other name in the seal's folder; nothing covers it.
std::vector<std::string> besidesSeal(const CodeBundle& bundle) {
  const auto folder = bundle.sealPath().parent_path();
  std::vector<std::string> found;
  const auto names = foundation::FileManager::contentsOfDirectoryAtPath(folder);
  if (!names) return found;
  for (const auto& name : *names) {
    if (name != bundle.sealPath().filename())
      found.push_back(folder.filename().string() + "/" + name);
  }
  return found;
}

/// What the platform allows at the root of a bundle beside Contents: traces of Finder and store,
/// none of them a program.
bool isAllowedAtRoot(const fs::path& entry) {
  constexpr std::array<std::string_view, 4> kNames = {".DS_Store", ".LSOverride", "Icon\r",
                                                      ".SoftwareDepot.tracking"};
  std::error_code failed;
  const auto status = fs::symlink_status(entry, failed);
  constexpr auto kExecute = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
  return std::ranges::find(kNames, entry.filename().native()) != kNames.end() &&
         fs::is_regular_file(status) && (status.permissions() & kExecute) == fs::perms::none &&
         !beginsLikeMachO(entry);
}

/// Everything else there; no seal reaches it.
Result<std::vector<std::string>> besidesContents(const CodeBundle& bundle) {
  std::vector<std::string> found;
  if (bundle.base == bundle.path) return found;
  const auto names = foundation::FileManager::contentsOfDirectoryAtPath(bundle.path);
  if (!names) return names.error();
  for (const auto& name : *names) {
    if (name != bundle.base.filename() && !isAllowedAtRoot(bundle.path / name)) {
      found.push_back("../" + name);
    }
  }
  return found;
}

/// The seal as it was found.
Result<ResourceSeal> sealedIn(const CodeBundle& bundle, const std::optional<Bytes>& seal) {
  if (!seal) {
    ResourceSeal nothing;
    nothing.rules = defaultResourceRules(bundle.shape());
    return nothing;
  }
  auto sealed = parseResourceSeal(*seal);
  if (!sealed) {
    return faultError(Fault::invalidResourceDirectory, sealed.error().localizedDescription());
  }
  if (sealed->rules.rules.empty() && sealed->rules.rules2.empty()) {
    return faultError(Fault::invalidResourceDirectory, "CodeResources has no rules");
  }
  return sealed;
}

}  // namespace

SealDifferences compareSeals(const ResourceSeal& sealed, const ResourceSeal& present) {
  const bool second = !sealed.rules.rules2.empty();
  const SealedItems& expected = second ? sealed.files2 : sealed.files;
  const SealedItems& found = second ? present.files2 : present.files;
  SealDifferences differences;
  // Both are in the order of their paths.
  auto sealedAt = expected.begin();
  auto foundAt = found.begin();
  while (sealedAt != expected.end() || foundAt != found.end()) {
    if (foundAt == found.end() ||
        (sealedAt != expected.end() && sealedAt->first < foundAt->first)) {
      if (!sealedAt->second.optional) differences.missing.push_back(sealedAt->first);
      ++sealedAt;
    } else if (sealedAt == expected.end() || foundAt->first < sealedAt->first) {
      differences.added.push_back((foundAt++)->first);
    } else {
      if (!isAsSealed(sealedAt->second, foundAt->second)) {
        differences.modified.push_back(foundAt->first);
      }
      ++sealedAt;
      ++foundAt;
    }
  }
  return differences;
}

Result<SealDifferences> compareWithSeal(const CodeBundle& bundle, const std::optional<Bytes>& seal,
                                        FileHasher& hasher) {
  const auto sealed = sealedIn(bundle, seal);
  if (!sealed) return sealed.error();
  SealOptions options;
  options.rules = sealed->rules;
  options.sha1InFiles2 = true;
  if (!options.rules.rules2.empty()) {
    // The first generation says nothing then, but its rules must be sound.
    const auto compiled = RuleMatcher::compile(options.rules.rules);
    if (!compiled) {
      return faultError(Fault::sealedResource, compiled.error().localizedDescription());
    }
    options.rules.rules.clear();
  }
  const auto present = makeResourceSeal(bundle, options, hasher);
  if (!present) {
    return faultError(Fault::sealedResource, present.error().localizedDescription());
  }
  auto differences = compareSeals(*sealed, *present);
  for (const auto& path : present->machOFiles) {
    differences.machOFiles.push_back((bundle.base / path).string());
  }
  for (const auto& [path, item] : present->files2) {
    if (item.cdHash) differences.codeByHash.push_back((bundle.base / path).string());
  }
  const auto atRoot = besidesContents(bundle);
  if (!atRoot) return faultError(Fault::sealedResource, atRoot.error().localizedDescription());
  for (const auto& others : {besidesSeal(bundle), *atRoot}) {
    differences.added.insert(differences.added.end(), others.begin(), others.end());
  }
  std::sort(differences.added.begin(), differences.added.end());
  return differences;
}

}  // namespace toolchain

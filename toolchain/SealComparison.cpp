#include "toolchain/SealComparison.h"

#include <algorithm>

#include "foundation/FileManager.h"
#include "toolchain/SignatureFault.h"

namespace toolchain {

namespace {

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

/// The digests are known already, so nothing is read for this.
Result<std::vector<std::string>> machOFilesOf(const CodeBundle& bundle, const ResourceSeal& present,
                                              FileHasher& hasher) {
  const SealedItems& items = present.rules.rules2.empty() ? present.files : present.files2;
  std::vector<std::string> paths;
  for (const auto& [path, item] : items) {
    if (item.sha1 || item.sha256) paths.push_back((bundle.base / path).string());
  }
  const auto digests = hasher.digests(paths);
  if (!digests) return digests.error();
  std::vector<std::string> found;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if ((*digests)[i].looksLikeMachO) found.push_back(std::move(paths[i]));
  }
  return found;
}

}  // namespace

SealDifferences compareSeals(const ResourceSeal& sealed, const ResourceSeal& present) {
  const bool second = !sealed.rules.rules2.empty();
  const SealedItems& expected = second ? sealed.files2 : sealed.files;
  const SealedItems& found = second ? present.files2 : present.files;
  SealDifferences differences;
  for (const auto& [path, item] : found) {
    const auto at = expected.find(path);
    if (at == expected.end()) {
      differences.added.push_back(path);
    } else if (!isAsSealed(at->second, item)) {
      differences.modified.push_back(path);
    }
  }
  for (const auto& [path, item] : expected) {
    if (!item.optional && !found.contains(path)) differences.missing.push_back(path);
  }
  return differences;
}

Result<SealDifferences> compareWithSeal(const CodeBundle& bundle, Bytes seal, FileHasher& hasher) {
  const auto sealed = parseResourceSeal(seal);
  if (!sealed) {
    return faultError(Fault::invalidResourceDirectory, sealed.error().localizedDescription());
  }
  SealOptions options;
  options.rules = sealed->rules;
  options.sha1InFiles2 = true;
  const auto present = makeResourceSeal(bundle, options, hasher);
  if (!present) {
    return faultError(Fault::sealedResource, present.error().localizedDescription());
  }
  auto differences = compareSeals(*sealed, *present);
  auto machOFiles = machOFilesOf(bundle, *present, hasher);
  if (!machOFiles) {
    return faultError(Fault::sealedResource, machOFiles.error().localizedDescription());
  }
  differences.machOFiles = *std::move(machOFiles);
  for (const auto& [path, item] : present->files2) {
    if (item.cdHash) differences.codeByHash.push_back((bundle.base / path).string());
  }
  for (auto& path : besidesSeal(bundle)) differences.added.push_back(std::move(path));
  std::sort(differences.added.begin(), differences.added.end());
  return differences;
}

}  // namespace toolchain

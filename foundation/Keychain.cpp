#include "foundation/Keychain.h"

#include <algorithm>
#include <array>
#include <set>

#include "foundation/FileManager.h"
#include "foundation/KeychainFiles.h"
#include "foundation/Path.h"
#include "foundation/SystemLog.h"
#include "foundation/Text.h"

namespace foundation {

namespace fs = std::filesystem;

namespace {

bool belongsInKeychainFolder(std::string_view name) {
  constexpr std::array<std::string_view, 6> kExtensions{"pem", "p12", "pfx", "cer", "der", "crt"};
  return std::ranges::find(kExtensions, lowercased(pathExtension(name))) != kExtensions.end();
}

Result<KeychainContents> readFolder(const fs::path& folder) {
  auto names = FileManager::visibleContentsOfDirectoryAtPath(folder);
  if (!names) return names.error();
  std::erase_if(*names, [](const std::string& name) { return !belongsInKeychainFolder(name); });
  std::ranges::sort(*names);
  KeychainContents all;
  for (const std::string& name : *names) {
    auto contents = readKeychainFile(folder / name);
    if (!contents) {
      systemLogOnce("passing over " + contents.error().localizedDescription());
      continue;
    }
    std::ranges::move(contents->certificates, std::back_inserter(all.certificates));
    std::ranges::move(contents->keys, std::back_inserter(all.keys));
  }
  return all;
}

std::vector<Certificate> eachOnce(std::vector<Certificate> certificates) {
  std::set<std::string_view> seen;
  std::vector<Certificate> unique;
  for (Certificate& certificate : certificates) {
    if (seen.insert(certificate.der().text()).second) unique.push_back(std::move(certificate));
  }
  return unique;
}

}  // namespace

Result<Keychain> Keychain::open(const fs::path& path) {
  auto contents = FileManager::isDirectoryAtPath(path) ? readFolder(path) : readKeychainFile(path);
  if (!contents) return contents.error();
  Keychain keychain;
  keychain.certificates_ = eachOnce(std::move(contents->certificates));
  keychain.keys_ = std::move(contents->keys);
  return keychain;
}

Keychain Keychain::defaultSearchList() {
  const fs::path folder = appendingPathComponent(FileManager::homeDirectory(), "Library/Keychains");
  if (!FileManager::isDirectoryAtPath(folder)) return {};
  auto keychain = open(folder);
  if (keychain) return *std::move(keychain);
  systemLogOnce("cannot search the keychains: " + keychain.error().localizedDescription());
  return {};
}

std::optional<Identity> Keychain::identityForCertificate(const Certificate& certificate) const {
  const auto key = std::ranges::find_if(
      keys_, [&](const PrivateKey& candidate) { return candidate.belongsTo(certificate); });
  if (key == keys_.end()) return std::nullopt;
  return Identity{certificate, *key};
}

std::vector<Identity> Keychain::identities() const {
  std::vector<Identity> found;
  for (const Certificate& certificate : certificates_) {
    if (auto identity = identityForCertificate(certificate)) found.push_back(*std::move(identity));
  }
  return found;
}

}  // namespace foundation

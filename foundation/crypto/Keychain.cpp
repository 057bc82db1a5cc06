#include "foundation/crypto/Keychain.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/private/KeychainFiles.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/SystemLog.h"

namespace foundation {

namespace fs = std::filesystem;

namespace {

bool belongsInKeychainFolder(std::string_view name) {
  // The last two are a Mac's own, listed so that the log says that they cannot be read.
  constexpr std::array<std::string_view, 8> kExtensions{"pem", "p12", "pfx",      "cer",
                                                        "der", "crt", "keychain", "keychain-db"};
  return std::ranges::find(kExtensions, lowercased(pathExtension(name))) != kExtensions.end();
}

/// Reads each file once.
class FileReader {
 public:
  explicit FileReader(std::uint64_t maximumIterations) : iterationsLeft_(maximumIterations) {}

  Result<KeychainContents> read(const fs::path& path) {
    const std::scoped_lock lock(mutex_);
    std::error_code unresolved;
    const fs::path resolved = fs::weakly_canonical(path, unresolved);
    const fs::path& key = unresolved ? path : resolved;
    if (const auto known = contents_.find(key); known != contents_.end()) return known->second;
    return contents_.emplace(key, readKeychainFile(path, iterationsLeft_)).first->second;
  }

 private:
  std::mutex mutex_;
  std::map<fs::path, Result<KeychainContents>> contents_;
  std::uint64_t iterationsLeft_;
};

/// Present during a session.
std::optional<FileReader>& sessionReader() {
  static std::optional<FileReader> reader;
  return reader;
}

Result<KeychainContents> readFolder(const fs::path& folder, FileReader& reader) {
  auto names = FileManager::visibleContentsOfDirectoryAtPath(folder);
  if (!names) return names.error();
  std::erase_if(*names, [](const std::string& name) { return !belongsInKeychainFolder(name); });
  std::ranges::sort(*names);
  KeychainContents all;
  for (const std::string& name : *names) {
    auto contents = reader.read(folder / name);
    if (!contents) {
      systemLogOnce("passing over " + contents.error().localizedDescription());
      continue;
    }
    std::ranges::move(contents->certificates, std::back_inserter(all.certificates));
    std::ranges::move(contents->keys, std::back_inserter(all.keys));
  }
  return all;
}

}  // namespace

KeychainSession::KeychainSession(std::uint64_t maximumIterations) : isOutermost_(!sessionReader()) {
  if (isOutermost_) sessionReader().emplace(maximumIterations);
}

KeychainSession::~KeychainSession() {
  if (isOutermost_) sessionReader().reset();
}

Result<Keychain> Keychain::open(const fs::path& path) {
  std::optional<FileReader> own;
  FileReader& reader =
      sessionReader() ? *sessionReader() : own.emplace(KeychainSession::kMaximumIterations);
  auto contents =
      FileManager::isDirectoryAtPath(path) ? readFolder(path, reader) : reader.read(path);
  return std::move(contents).map([](KeychainContents all) {
    std::set<std::string_view> seen;
    std::erase_if(all.certificates, [&](const Certificate& certificate) {
      return !seen.insert(certificate.der().text()).second;
    });
    Keychain keychain;
    keychain.certificates_ = std::move(all.certificates);
    keychain.keys_ = std::move(all.keys);
    return keychain;
  });
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

#include "preparation/TemporaryItems.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "console/QVTCLUtilLog.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/LockFile.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/Interruption.h"

namespace FileManager = foundation::FileManager;
using foundation::appendingPathComponent;
using foundation::LockFile;
using foundation::Result;

namespace {

constexpr std::string_view kOwnPrefix = "com.quorvantile.";
constexpr std::array<std::string_view, 3> kSharedFolders = {
    "com.quorvantile.mac/apps", "com.quorvantile.mac/distributions", "com.quorvantile.ipas"};

constexpr std::chrono::hours kLeftoverAge{24};
constexpr std::chrono::milliseconds kLookInterval{50};

std::string claimsFolder(const std::string& temporary) {
  return temporary + std::string(kOwnPrefix) + "claims-" + std::to_string(::geteuid());
}

/// Of fixed length, however long the item's name is.
std::string claimName(std::string_view item) {
  return foundation::lowercaseHex(foundation::sha1(foundation::bytesOf(item)));
}

/// The item's path relative to the temporary folder, without a final slash.
std::string relativePath(const std::string& temporary, std::string_view path) {
  if (path.starts_with(temporary)) path.remove_prefix(temporary.size());
  return std::string(foundation::withoutTrailingSlashes(path));
}

bool isThere(const std::string& path) {
  struct stat details {};
  return ::lstat(path.c_str(), &details) == 0;
}

std::vector<std::string> namesIn(const std::string& folder) {
  return FileManager::contentsOfDirectoryAtPath(folder).value().value_or(
      std::vector<std::string>());
}

std::string payloadOf(const std::string& folder) {
  return appendingPathComponent(folder, "Payload");
}

/// Another process may be removing it too, or a dying child may still write.
void removeWhateverIsThere(const std::string& path) {
  constexpr int attempts = 5;
  for (int attempt = 0; attempt < attempts && isThere(path); ++attempt) {
    [[maybe_unused]] const Result<> removed = FileManager::removeItemAtPath(path);
  }
}

// ---- The claims of this process

struct Item {
  std::string path;
  LockFile claim;
  /// What the Payload of a folder that existed before contained, if it had one.
  bool wasThere = false;
  std::optional<std::set<std::string>> payloadBefore = std::nullopt;
  /// False for the tool's shared folders, and for a file in a folder's place.
  bool mayBeRemoved = true;
};

void rememberWhatWasThere(Item& item) {
  item.wasThere = isThere(item.path);
  if (!item.wasThere) return;
  if (!FileManager::isRealDirectory(item.path)) item.mayBeRemoved = false;
  const std::string payload = payloadOf(item.path);
  if (!isThere(payload)) return;
  const std::vector<std::string> names = namesIn(payload);
  item.payloadBefore.emplace(names.begin(), names.end());
}

void removeItem(const Item& item) {
  if (!item.mayBeRemoved) return;
  if (!item.wasThere) return removeWhateverIsThere(item.path);
  const std::string payload = payloadOf(item.path);
  if (!FileManager::isRealDirectory(item.path) || !FileManager::isRealDirectory(payload)) return;
  if (!item.payloadBefore) return removeWhateverIsThere(payload);
  for (const std::string& name : namesIn(payload)) {
    if (!item.payloadBefore->contains(name)) {
      removeWhateverIsThere(appendingPathComponent(payload, name));
    }
  }
}

/// `zip` writes an archive under such a name, beside its final place.
bool isPartialArchiveName(std::string_view name) {
  constexpr std::size_t length = 8;
  return name.size() == length && name.starts_with("zi") &&
         std::ranges::all_of(name, [](unsigned char letter) { return std::isalnum(letter); });
}

/// Those not older than the item's claim.
std::vector<std::string> partialArchivesBeside(const Item& item) {
  std::vector<std::string> found;
  if (!item.path.ends_with(".ipa") || !item.claim) return found;
  const std::string folder = foundation::deletingLastPathComponent(item.path);
  for (const std::string& name : namesIn(folder)) {
    const std::string path = appendingPathComponent(folder, name);
    const auto written = FileManager::modificationDateOfItemAtPath(path);
    if (isPartialArchiveName(name) && written && *written >= item.claim.lastWritten()) {
      found.push_back(path);
    }
  }
  return found;
}

class Claims {
 public:
  static Claims& ofThisProcess() {
    static Claims claims;
    return claims;
  }
  ~Claims() { release(); }

  bool has(const std::string& path) const {
    const std::lock_guard lock(mutex_);
    return std::ranges::find(items_, path, &Item::path) != items_.end();
  }
  void add(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
  }
  /// Does nothing for a path that is not claimed.
  template <class Work>
  void with(std::string_view path, const Work& work) {
    const std::lock_guard lock(mutex_);
    const auto item = std::ranges::find(items_, path, &Item::path);
    if (item != items_.end()) work(*item);
  }
  void release() {
    const std::lock_guard lock(mutex_);
    for (Item& item : items_) item.claim.remove();
    items_.clear();
  }
  void remove() {
    const std::lock_guard lock(mutex_);
    std::ranges::for_each(items_, removeItem);
    removePartialArchives();
    for (Item& item : items_) item.claim.remove();
    items_.clear();
  }

 private:
  /// What a killed `zip` leaves has a name that does not say whose it is. Another run that may be
  /// writing one has a claim.
  void removePartialArchives() const {
    for (const Item& item : items_) {
      const std::vector<std::string> paths = partialArchivesBeside(item);
      if (paths.empty() || othersHaveClaims(item.claim.folder())) continue;
      std::ranges::for_each(paths, removeWhateverIsThere);
    }
  }
  bool othersHaveClaims(const std::string& folder) const {
    return std::ranges::any_of(namesIn(folder), [&](const std::string& name) {
      const bool isOwn = std::ranges::any_of(
          items_, [&](const Item& item) { return item.claim && item.claim.name() == name; });
      if (isOwn) return false;
      const auto claim = LockFile::take(folder, name, LockFile::Missing::leave);
      return !claim || !*claim;
    });
  }

  mutable std::mutex mutex_;
  std::vector<Item> items_;
};

Result<LockFile> waitForClaim(const std::string& temporary, const std::string& relative) {
  for (bool hasSaidSo = false;; hasSaidSo = true) {
    auto claim = LockFile::take(claimsFolder(temporary), claimName(relative));
    if (!claim || *claim) return claim;
    if (!hasSaidSo)
      debugLog("Waiting for another run that uses %@",
               foundation::escapingControlCharacters(temporary + relative));
    std::this_thread::sleep_for(kLookInterval);
    foundation::throwIfInterrupted();
  }
}

// ---- What killed processes left

bool isOld(foundation::Date written) {
  return std::chrono::system_clock::now() - written > kLeftoverAge;
}

/// An entry of a shared folder, or of the temporary folder unless it is one of the tool's own.
bool isPathOfAnItem(const std::string& relative) {
  const auto slash = relative.rfind('/');
  if (slash == relative.npos)
    return foundation::isPlainName(relative) && !relative.starts_with(kOwnPrefix);
  const std::string_view folder = std::string_view(relative).substr(0, slash);
  return foundation::isPlainName(std::string_view(relative).substr(slash + 1)) &&
         std::ranges::find(kSharedFolders, folder) != kSharedFolders.end();
}

bool isOwnAndNoLink(const std::string& path, struct stat& details) {
  return ::lstat(path.c_str(), &details) == 0 && !S_ISLNK(details.st_mode) &&
         details.st_uid == ::geteuid();
}

/// The folders around the item must be this user's, too.
bool isOwnOldItem(const std::string& temporary, const std::string& relative) {
  struct stat details {};
  for (auto slash = relative.find('/'); slash != relative.npos;
       slash = relative.find('/', slash + 1)) {
    if (!isOwnAndNoLink(temporary + relative.substr(0, slash), details)) return false;
  }
  const std::string path = temporary + relative;
  if (!isOwnAndNoLink(path, details)) return false;
  if (!S_ISDIR(details.st_mode) && !S_ISREG(details.st_mode)) return false;
  const auto written = FileManager::modificationDateOfItemAtPath(path);
  return written && isOld(*written);
}

void removeLeftover(const std::string& temporary, const std::string& name) {
  auto claim = LockFile::take(claimsFolder(temporary), name, LockFile::Missing::leave);
  if (!claim || !*claim || !claim->isExclusive() || !isOld(claim->lastWritten())) return;
  const std::string relative = claim->content();
  // An empty claim is for a folder that existed before.
  if (!relative.empty()) {
    if (!isPathOfAnItem(relative) || claimName(relative) != name) return;
    const std::string path = temporary + relative;
    if (isOwnOldItem(temporary, relative) && FileManager::removeItemAtPath(path)) {
      debugLog("Removed %@, left behind by a run that was killed",
               foundation::escapingControlCharacters(path));
    }
    if (isThere(path)) return;
  }
  claim->remove();
}

}  // namespace

Result<> TemporaryItems::claimFolder(const std::string& path) {
  const Result<std::string> temporary = FileManager::temporaryDirectory();
  if (!temporary) return temporary.error();
  const std::string relative = relativePath(*temporary, path);
  Item item{.path = *temporary + relative, .claim = {}};
  if (Claims::ofThisProcess().has(item.path)) return {};
  return FileManager::createDirectoryWithIntermediates(*temporary)
      .andThen([&] { return waitForClaim(*temporary, relative); })
      .map([&](LockFile claim) {
        item.claim = std::move(claim);
        item.mayBeRemoved = isPathOfAnItem(relative);
        rememberWhatWasThere(item);
        item.claim.write(item.wasThere || !item.mayBeRemoved ? "" : relative);
        Claims::ofThisProcess().add(std::move(item));
      });
}

void TemporaryItems::claimNew(const std::string& path) {
  Item item{.path = path, .claim = {}};
  const Result<std::string> temporary = FileManager::temporaryDirectory();
  if (temporary && FileManager::createDirectoryWithIntermediates(*temporary)) {
    const std::string relative = relativePath(*temporary, path);
    auto claim = LockFile::take(claimsFolder(*temporary), claimName(relative));
    if (claim && *claim) {
      item.claim = *std::move(claim);
      item.claim.write(relative);
    }
  }
  Claims::ofThisProcess().add(std::move(item));
}

void TemporaryItems::ownFromPayload(const std::string& folder, const std::string& name) {
  Claims::ofThisProcess().with(foundation::withoutTrailingSlashes(folder), [&](Item& item) {
    if (item.payloadBefore) item.payloadBefore->erase(name);
  });
}

void TemporaryItems::removeOwn(const std::string& folder) {
  Claims::ofThisProcess().with(foundation::withoutTrailingSlashes(folder), removeItem);
}

void TemporaryItems::releaseAll() {
  Claims::ofThisProcess().release();
  FileManager::removeSubstituteIfEmpty();
}

void TemporaryItems::removeAll() {
  Claims::ofThisProcess().remove();
  FileManager::removeSubstituteIfEmpty();
}

void TemporaryItems::removeLeftovers() {
  const Result<std::string> temporary = FileManager::temporaryDirectory();
  if (!temporary) return;
  for (const std::string& name : namesIn(claimsFolder(*temporary))) {
    removeLeftover(*temporary, name);
  }
}

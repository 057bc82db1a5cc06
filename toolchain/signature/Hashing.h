#pragma once

#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/crypto/Digest.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/Pieces.h"
#include "toolchain/signature/CodeDirectory.h"

/// Digests of pages and of files, on all cores.
namespace toolchain {

/// All page hashes of one slice in one hash type, as a CodeDirectory stores them.
struct PageHashes {
  HashType type = HashType::sha256;
  std::uint8_t pageShift = 12;
  std::vector<std::byte> hashes;
};

/// Reads each page of `code` once for all `types`; the last page may be short.
std::vector<PageHashes> hashPages(const Pieces& code, std::uint8_t pageShift,
                                  std::span<const HashType> types);

/// What one read of a file yields: both digests that a resource seal may hold, and its kind.
struct FileDigests {
  /// The file begins as Mach-O does.
  bool looksLikeMachO = false;
  foundation::SHA1Digest sha1{};
  foundation::SHA256Digest sha256{};
};

/// Digests of whole files. Reads each path once in its lifetime, however many bundles contain it.
/// Not thread-safe; uses several threads itself.
class FileHasher {
 public:
  /// Digests in the order of `paths`, which must be absolute. Fails with the path and the system's
  /// text for the first file that cannot be read.
  Result<std::vector<FileDigests>> digests(std::span<const std::string> paths);
  /// Forgets a file that has been replaced.
  void forget(const std::string& path) { known_.erase(path); }

 private:
  std::unordered_map<std::string, FileDigests> known_;
};

}  // namespace toolchain

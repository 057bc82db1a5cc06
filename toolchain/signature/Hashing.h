#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "foundation/crypto/Digest.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/Pieces.h"
#include "toolchain/signature/CodeDirectory.h"

/// The work that signing and verifying are made of: digests of pages and of files, on all cores.
namespace toolchain {

/// Page hashes of one slice in one hash type, in one piece as a CodeDirectory stores them.
struct PageHashes {
  HashType type = HashType::sha256;
  std::uint8_t pageShift = 12;
  std::vector<std::byte> hashes;
};

/// Hashes each page of `code` once for all `types`, on all cores; the last page may be short.
std::vector<PageHashes> hashPages(const Pieces& code, std::uint8_t pageShift,
                                  std::span<const HashType> types);

/// Both digests that a resource seal may hold, and what else one reading tells.
struct FileDigests {
  /// The file begins as Mach-O does.
  bool looksLikeMachO = false;
  foundation::SHA1Digest sha1{};
  foundation::SHA256Digest sha256{};
};

/// Digests of whole files. Each path is read once in the life of the object, whatever the number of
/// bundles it is part of. Not for several threads at once; uses several itself.
class FileHasher {
 public:
  FileHasher();
  ~FileHasher();
  FileHasher(const FileHasher&) = delete;

  /// Digests in the order of `paths`, which must be absolute. Fails with the path and the system's
  /// text of a file that cannot be read; of several, the first in the given order.
  Result<std::vector<FileDigests>> digests(std::span<const std::string> paths);
  /// Forgets a file that has been replaced.
  void forget(const std::string& path);

 private:
  struct Cache;
  std::unique_ptr<Cache> cache_;
};

}  // namespace toolchain

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "foundation/crypto/Digest.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Blobs.h"

/// CodeDirectory blobs: what a signature says about one slice. Format: cs_blobs.h in Apple's open
/// xnu sources, codedirectory.h in its open Security sources.
namespace toolchain {

enum class HashType : std::uint8_t { sha1 = 1, sha256 = 2, sha256Truncated = 3, sha384 = 4 };

/// Bytes of one stored hash; 0 for an unknown type.
std::size_t hashSize(HashType type);
/// Stronger is higher, in the kernel's order: SHA-1, truncated SHA-256, SHA-256, SHA-384.
std::ptrdiff_t strength(HashType type);
/// "sha1", "sha256", "sha256-truncated", "sha384".
std::string_view hashName(HashType type);
foundation::DigestKind digestKind(HashType type);
/// The digest's object identifier, dotted.
std::string_view digestOID(HashType type);
/// The hash as a CodeDirectory stores it, truncated for `sha256Truncated`.
std::vector<std::byte> hashOf(Bytes bytes, HashType type);

namespace codeflag {
inline constexpr std::uint32_t kAdHoc = 0x2;
inline constexpr std::uint32_t kRuntime = 0x10000;
inline constexpr std::uint32_t kLinkerSigned = 0x20000;
/// These and host, hard, kill, expiration, restrict, enforcement and library validation.
inline constexpr std::uint32_t kKnown = 0x33f03;
}  // namespace codeflag

namespace execseg {
inline constexpr std::uint64_t kMainBinary = 0x1;
inline constexpr std::uint64_t kAllowUnsigned = 0x10;
inline constexpr std::uint64_t kDebugger = 0x20;
inline constexpr std::uint64_t kJIT = 0x40;
inline constexpr std::uint64_t kSkipLibraryValidation = 0x80;
inline constexpr std::uint64_t kCanLoadCDHash = 0x100;
inline constexpr std::uint64_t kCanExecuteCDHash = 0x200;
}  // namespace execseg

struct CodeDirectoryFields {
  std::uint32_t version = 0x20400;
  std::uint32_t flags = 0;
  HashType hashType = HashType::sha256;
  std::uint8_t platform = 0;
  /// Binary logarithm of the page size; 0 for a single page of any size.
  std::uint8_t pageShift = 12;
  /// Bytes of the slice that the hashes cover.
  std::uint64_t codeLimit = 0;
  std::string identifier;
  /// Empty: none.
  std::string teamIdentifier;
  std::uint64_t execSegmentBase = 0;
  std::uint64_t execSegmentLimit = 0;
  std::uint64_t execSegmentFlags = 0;
  std::uint32_t runtimeVersion = 0;
};

/// A parsed CodeDirectory; refers to the parsed bytes. Every hash lies inside the blob.
struct CodeDirectory {
  CodeDirectoryFields fields;
  std::uint32_t specialSlotCount = 0;
  std::uint32_t codeSlotCount = 0;
  Bytes blob;

  /// `blob` is one whole blob with its header. Fails for versions below 0x20001, unknown hash
  /// types, hashes or texts outside the blob, and a count of pages that does not fit the limit.
  static Result<CodeDirectory> parse(Bytes blob);

  /// Slots count from 1. All zeros for an unused slot; empty beyond `specialSlotCount`.
  [[nodiscard]] Bytes specialHash(std::uint32_t slot) const;
  /// `page` must be below `codeSlotCount`.
  [[nodiscard]] Bytes codeHash(std::uint32_t page) const;
  /// All page hashes in one piece.
  [[nodiscard]] Bytes codeHashes() const;
  /// Digest of the whole blob in its own hash type, not truncated.
  [[nodiscard]] std::vector<std::byte> fullHash() const;
  /// The first 20 bytes of `fullHash`.
  [[nodiscard]] std::vector<std::byte> cdHash() const;

 private:
  std::uint32_t hashOffset_ = 0;
};

/// Fails for what the platform's tool never writes and readers may interpret differently: a scatter
/// vector, values in spare fields, unknown flags, bytes after the hashes, special slots beyond the
/// last one that has a hash. The error does not name the directory.
Result<> checkUnused(const CodeDirectory& directory);

/// Special hashes by slot number (1 and up), each of the directory's hash size.
using SpecialHashes = std::map<std::uint32_t, std::vector<std::byte>>;

/// `pageHashes` holds all page hashes in one piece, `special` only the slots in use.
std::vector<std::byte> makeCodeDirectory(const CodeDirectoryFields& fields,
                                         const SpecialHashes& special, Bytes pageHashes);

/// What the platform's own tool reserves for such a blob: its size with the largest header.
std::uint64_t reservedCodeDirectorySize(const CodeDirectoryFields& fields,
                                        std::uint32_t specialSlots, std::uint32_t pages);

std::uint64_t pageCount(std::uint64_t codeLimit, std::uint8_t pageShift);

}  // namespace toolchain

#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "toolchain/common/Messages.h"

/// Signature blobs: big-endian magic, length (these eight bytes included), payload. Format:
/// cs_blobs.h in Apple's open xnu sources, superblob.h in its open Security sources.
namespace toolchain {

namespace magic {
inline constexpr std::uint32_t kRequirement = 0xfade0c00;
inline constexpr std::uint32_t kRequirementSet = 0xfade0c01;
inline constexpr std::uint32_t kCodeDirectory = 0xfade0c02;
inline constexpr std::uint32_t kEmbeddedSignature = 0xfade0cc0;
inline constexpr std::uint32_t kWrapper = 0xfade0b01;
inline constexpr std::uint32_t kEntitlements = 0xfade7171;
inline constexpr std::uint32_t kEntitlementsDER = 0xfade7172;
inline constexpr std::uint32_t kLaunchConstraint = 0xfade8181;
}  // namespace magic

namespace slot {
inline constexpr std::uint32_t kCodeDirectory = 0;
inline constexpr std::uint32_t kInfoPlist = 1;
inline constexpr std::uint32_t kRequirements = 2;
inline constexpr std::uint32_t kResources = 3;
inline constexpr std::uint32_t kEntitlements = 5;
inline constexpr std::uint32_t kEntitlementsDER = 7;
inline constexpr std::uint32_t kLaunchConstraintSelf = 8;
inline constexpr std::uint32_t kLibraryConstraint = 11;
inline constexpr std::uint32_t kAlternateCodeDirectories = 0x1000;
inline constexpr std::uint32_t kAlternateCodeDirectoriesEnd = 0x1005;
inline constexpr std::uint32_t kSignature = 0x10000;
}  // namespace slot

/// The big-endian number at `offset`; absent when it does not lie inside `bytes`.
std::optional<std::uint32_t> bigEndian32At(Bytes bytes, std::uint64_t offset);
std::optional<std::uint64_t> bigEndian64At(Bytes bytes, std::uint64_t offset);

/// Bytes under construction.
class ByteWriter {
 public:
  void u8(std::uint8_t value);
  void u32(std::uint32_t value);
  void u64(std::uint64_t value);
  void append(Bytes bytes);
  void append(std::string_view text) { append(foundation::bytesOf(text)); }
  void zeros(std::size_t count);
  /// Overwrites the big-endian number at `offset`, which must have been written before.
  void patch32(std::size_t offset, std::uint32_t value);
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] Bytes bytes() const { return bytes_; }
  std::vector<std::byte> take() { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

/// One entry of a superblob: `bytes` is the whole blob with its header.
struct BlobEntry {
  std::uint32_t slot = 0;
  Bytes bytes;
};

std::vector<std::byte> makeBlob(std::uint32_t magic, Bytes payload);
/// The payload of exactly one blob of this magic; fails naming what differs.
Result<Bytes> blobPayload(Bytes blob, std::uint32_t magic);

/// Orders the index by slot and writes the blobs in that order without gaps.
std::vector<std::byte> makeSuperBlob(std::uint32_t magic, std::vector<BlobEntry> entries);

/// Bytes between blobs. Some linkers align the blobs of their signatures. No hash covers such
/// bytes, so only callers that do not verify may accept them.
enum class Gaps { refused, accepted };

/// A parsed superblob; refers to the parsed bytes.
class SuperBlob {
 public:
  /// `area` may be longer than the superblob. Requires what the platform requires: ascending slots
  /// without repetition and, unless gaps are accepted, blobs in that order that fill everything
  /// after the index.
  static Result<SuperBlob> parse(Bytes area, std::uint32_t magic, Gaps gaps = Gaps::refused);

  [[nodiscard]] const std::vector<BlobEntry>& entries() const { return entries_; }
  /// The whole blob in this slot; absent without one.
  [[nodiscard]] std::optional<Bytes> find(std::uint32_t slot) const;
  /// The superblob without the rest of its area.
  [[nodiscard]] Bytes bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  std::vector<BlobEntry> entries_;
};

}  // namespace toolchain

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/bundle/IdentitySelection.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Hashing.h"

/// One slice's signature, from what it is to say to its bytes.
namespace toolchain {

/// What is the same for all slices of a file.
struct SignatureContent {
  std::string identifier;
  /// Empty: none.
  std::string teamIdentifier;
  std::uint32_t flags = 0;
  /// Weakest first: the first is the primary CodeDirectory's.
  std::vector<HashType> hashTypes;
  /// Null: ad hoc.
  const SigningIdentity* identity = nullptr;
  foundation::Date signingTime;
  /// For main executables only.
  std::optional<Entitlements> entitlements;
  /// The code is a bundle, so there will be a seal.
  bool isSealed = false;
  /// Bytes of Info.plist and of the seal; absent where there is none, or not yet.
  std::optional<Bytes> infoPlist;
  std::optional<Bytes> resources;
};

/// Both digests when any slice is made for a system that knows only SHA-1, else SHA-256 alone.
std::vector<HashType> hashTypesFor(const MachOFile& image);
/// 16 KiB pages where the processor has them, 4 KiB elsewhere.
std::uint8_t pageShiftFor(const Slice& slice);

/// Builds in two steps, since the hashed load commands already say how large the signature is.
class SignatureBuilder {
 public:
  SignatureBuilder(const SignatureContent& content, const Slice& slice, std::uint64_t codeLimit);

  /// Bytes to set aside, a multiple of 16: what the platform's tool sets aside, more where the
  /// certificates need it. Does not depend on hashes.
  [[nodiscard]] std::uint64_t room() const;
  /// The whole superblob.
  [[nodiscard]] Result<std::vector<std::byte>> build(const std::vector<PageHashes>& pages) const;

 private:
  struct Blob {
    std::uint32_t slot;
    std::vector<std::byte> bytes;
  };

  [[nodiscard]] std::uint32_t specialSlotCount() const;
  [[nodiscard]] SpecialHashes specialHashes(HashType type) const;
  [[nodiscard]] std::vector<std::vector<std::byte>> directories(
      const std::vector<PageHashes>& pages) const;
  [[nodiscard]] Result<std::vector<std::byte>> wrapper(
      const std::vector<std::vector<std::byte>>& directories) const;

  const SignatureContent& content_;
  CodeDirectoryFields fields_;
  /// Requirements and entitlements, ascending by slot.
  std::vector<Blob> blobs_;
};

}  // namespace toolchain

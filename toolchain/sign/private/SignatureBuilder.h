#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/bundle/IdentitySelection.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Hashing.h"

/// Builds one slice's signature.
namespace toolchain {

/// What all slices of a file share.
struct SignatureContent {
  std::string identifier;
  /// Empty: none.
  std::string teamIdentifier;
  std::uint32_t flags = 0;
  /// Weakest first; the primary CodeDirectory has the first.
  std::vector<HashType> hashTypes;
  /// Null: ad hoc.
  const SigningIdentity* identity = nullptr;
  foundation::Date signingTime;
  /// For main executables only.
  std::optional<Entitlements> entitlements;
  /// There will be a seal, as the code is a bundle.
  bool isSealed = false;
  /// Bytes of Info.plist and of the seal; absent where there is none, or not yet.
  std::optional<Bytes> infoPlist;
  std::optional<Bytes> resources;
};

/// SHA-1 and SHA-256 when any slice runs on a system that knows only SHA-1, else SHA-256 alone.
std::vector<HashType> hashTypesFor(const MachOFile& image);
/// 16 KiB pages where the processor has them, 4 KiB elsewhere.
std::uint8_t pageShiftFor(const Slice& slice);

/// Builds in two steps, since the load commands, which are hashed, contain the signature's size.
class SignatureBuilder {
 public:
  SignatureBuilder(const SignatureContent& content, const Slice& slice, std::uint64_t codeLimit);

  /// Bytes to reserve, a multiple of 16: what the platform's tool reserves, or more if the
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

#pragma once

#include <optional>
#include <span>

#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Hashing.h"

namespace toolchain {

/// Everything that one slice's signature is checked against.
struct SliceEvidence {
  const Slice& slice;
  /// The area that LC_CODE_SIGNATURE points to.
  Bytes signature;
  /// The slice's bytes up to that area; may be empty when `takenHashes` has every digest needed.
  Pieces code;
  /// Page hashes that were just taken of this very code; looked up by type and page size, computed
  /// from `code` where none fits.
  std::span<const PageHashes> takenHashes;
  /// Files as on disk; absent: none. A slice without one that its signature asks for fails.
  std::optional<Bytes> infoPlist;
  std::optional<Bytes> resources;
  /// For the designated requirement.
  RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// What a sound signature said.
struct CheckedSignature {
  EmbeddedSignature signature;
  /// Absent for an ad-hoc signature.
  std::optional<foundation::CMS::Signer> signer;
  /// Absent: the signature has none.
  std::optional<requirement::Expression> designatedRequirement;
  /// The code, as requirements see it.
  RequirementSubject subject;

  /// True as well where `other` asks for nothing.
  [[nodiscard]] bool meetsRequirementOf(const CheckedSignature& other) const;
};

/// Checks structure, page hashes, special slots, both forms of entitlements, requirement, and the
/// CMS with both hash lists and its chain. Errors are made by `faultError`. Refers to the
/// evidence's bytes.
Result<CheckedSignature> checkSignature(const SliceEvidence& evidence);

}  // namespace toolchain

#pragma once

#include <optional>
#include <span>

#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Hashing.h"

namespace toolchain {

/// What one slice's signature is checked against.
struct SliceEvidence {
  const Slice& slice;
  /// The area that LC_CODE_SIGNATURE points to.
  Bytes signature;
  /// The slice's bytes up to that area; may be empty when `takenHashes` has all hashes needed.
  Pieces code;
  /// Page hashes of this code, if already computed; others are computed from `code`.
  std::span<const PageHashes> takenHashes;
  /// Files as on disk; absent: none. A slice fails without a file that its signature covers.
  std::optional<Bytes> infoPlist;
  std::optional<Bytes> resources;
  /// For the designated requirement.
  RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// A signature that matches its slice.
struct CheckedSignature {
  EmbeddedSignature signature;
  /// Absent for an ad-hoc signature.
  std::optional<foundation::CMS::Signer> signer;
  /// Absent: the signature has none.
  std::optional<requirement::Expression> designatedRequirement;
  /// The code as requirements see it.
  RequirementSubject subject;

  /// Also true when `other` has no requirement.
  [[nodiscard]] bool meetsRequirementOf(const CheckedSignature& other) const;
};

/// Checks structure, page hashes, special slots, both forms of entitlements, requirement, and the
/// CMS with both hash lists and its chain. Errors are made by `faultError`. Refers to the
/// evidence's bytes.
Result<CheckedSignature> checkSignature(const SliceEvidence& evidence);

}  // namespace toolchain

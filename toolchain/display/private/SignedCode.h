#pragma once

#include <optional>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace toolchain {

/// Code whose signature is read but not verified; of a universal file that of
/// `SlicePolicy::deviceFirst`.
struct SignedCode {
  CodeBundle code;
  OpenedImage opened;
  /// Absent for unsigned code; refers to the mapped file.
  std::optional<EmbeddedSignature> signature;

  /// Fails when the code cannot be opened or its signature is malformed.
  static Result<SignedCode> open(const std::filesystem::path& path);

  /// The resource seal; absent without one. Fails when it is malformed.
  [[nodiscard]] Result<std::optional<ResourceSeal>> seal() const;
};

}  // namespace toolchain

#pragma once

#include <optional>
#include <vector>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/signature/CodeDirectory.h"

namespace toolchain {

/// Code whose signature is read but not verified. Of a universal file one slice speaks for all: the
/// arm64 one, else the first.
struct SignedCode {
  CodeBundle code;
  OpenedImage opened;
  /// Position of the slice in `opened.image`.
  std::size_t sliceIndex = 0;
  /// Absent for unsigned code; refers to the mapped file.
  std::optional<SuperBlob> signature;
  /// Empty for unsigned code.
  std::vector<CodeDirectory> directories;

  /// Fails when the code cannot be opened or its signature is malformed.
  static Result<SignedCode> open(const std::filesystem::path& path);

  [[nodiscard]] const Slice& slice() const { return opened.image.slices()[sliceIndex]; }
  /// The resource seal; absent without one. Fails when it is malformed.
  [[nodiscard]] Result<std::optional<ResourceSeal>> seal() const;
};

}  // namespace toolchain

#pragma once

#include <cstdint>
#include <vector>

#include "foundation/base/Bytes.h"

namespace toolchain {

/// Content in several places (changed load commands, the mapped rest, padding), seen as one run of
/// bytes. Refers to the caller's bytes.
using Pieces = std::vector<foundation::Bytes>;

inline std::uint64_t sizeOf(const Pieces& pieces) {
  std::uint64_t size = 0;
  for (const foundation::Bytes piece : pieces) size += piece.size();
  return size;
}

/// What a file holds from `offset` on.
struct FilePart {
  std::uint64_t offset = 0;
  Pieces content;
};

}  // namespace toolchain

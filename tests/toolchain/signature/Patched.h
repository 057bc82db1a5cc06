#pragma once

#include <optional>

#include "tests/support/Test.h"
#include "toolchain/signature/Blobs.h"

namespace test {

/// One change to a sound blob, and what its reader says about it.
struct Damage {
  const char* name;
  std::size_t offset;
  std::uint32_t value;
  std::string complaint;
  /// What the blob is first truncated or extended to.
  std::optional<std::size_t> size = std::nullopt;
};

inline std::vector<std::byte> patched(foundation::Bytes sound, const Damage& damage) {
  std::vector<std::byte> bytes(sound.begin(), sound.end());
  if (damage.size) bytes.resize(*damage.size);
  toolchain::ByteWriter out;
  out.append(bytes);
  out.patch32(damage.offset, damage.value);
  return out.take();
}

}  // namespace test

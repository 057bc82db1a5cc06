#pragma once

#include <array>
#include <memory>
#include <span>

#include "foundation/base/Bytes.h"

namespace foundation {

using SHA1Digest = std::array<std::byte, 20>;
using SHA256Digest = std::array<std::byte, 32>;
using MD5Digest = std::array<std::byte, 16>;

/// One-shot digests, using the processor's instructions where available. Like the constructor of
/// `Digest`, they throw an `Exception` if OpenSSL does not offer the algorithm.
SHA1Digest sha1(Bytes bytes);
SHA256Digest sha256(Bytes bytes);
MD5Digest md5(Bytes bytes);

enum class DigestKind { sha1, sha256, sha384 };

/// An incremental digest. Not thread-safe.
class Digest {
 public:
  explicit Digest(DigestKind kind);
  Digest(Digest&&) noexcept;
  Digest& operator=(Digest&&) noexcept;
  ~Digest();

  void reset();
  void update(Bytes bytes);
  /// Writes `size()` bytes to `out`. Call `reset` before the next `update`.
  void finish(std::span<std::byte> out);
  [[nodiscard]] std::size_t size() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace foundation

#pragma once

#include <bitset>
#include <cstdint>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

using foundation::Result;

/// A POSIX extended regular expression (IEEE Std 1003.1, 9.4) that is searched in paths.
///
/// Bytes are compared as they are, as in the "C" locale. Matching takes time in proportion to the
/// product of path and pattern, whatever the pattern.
class PathPattern {
 public:
  /// Fails with the reason: not an expression, one that POSIX leaves open (`parsePattern`), or one
  /// that has more than a thousand states with its counted repetitions written out.
  static Result<PathPattern> compile(std::string_view text);

  /// Whether any part of the path matches.
  [[nodiscard]] bool matches(std::string_view path) const;
  [[nodiscard]] std::size_t stateCount() const { return states_.size(); }
  /// Most steps that matching takes for each byte of a path.
  [[nodiscard]] std::size_t stepsPerByte() const { return rows_.empty() ? states_.size() : 1; }

 private:
  friend class PatternAutomaton;
  using State = std::uint16_t;

  /// One state of the nondeterministic automaton.
  struct Node {
    enum class Kind : std::uint8_t { bytes, start, end, fork, match };
    Kind kind = Kind::match;
    State next = 0;
    /// Of `fork` the other way, of `bytes` the index of the set.
    State other = 0;
  };
  using ByteSet = std::bitset<256>;

  [[nodiscard]] bool matchesByStates(std::string_view path) const;
  [[nodiscard]] bool matchesByRows(std::string_view path) const;

  std::vector<Node> states_;
  std::vector<ByteSet> sets_;
  State first_ = 0;
  /// The deterministic automaton of a pattern that has a small one, else empty: a row for each
  /// state, and in it a successor for each class of bytes.
  std::vector<std::uint8_t> rows_;
  std::vector<std::uint8_t> accepts_;
  std::vector<std::uint8_t> classOf_;
  std::size_t classCount_ = 0;
};

}  // namespace toolchain

#pragma once

#include <bitset>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"

namespace toolchain {

/// One part of a POSIX extended regular expression.
struct PatternPart {
  enum class Kind {
    /// One byte of a set.
    bytes,
    /// The start of the text, and its end.
    start,
    end,
    /// All of its parts in turn; one of them; its only part, again and again.
    sequence,
    choice,
    repetition,
  };
  explicit PatternPart(Kind ofPart) : kind(ofPart) {}

  Kind kind;
  std::bitset<256> bytes;
  std::vector<PatternPart> parts;
  /// Of a repetition; no most means any number.
  unsigned least = 0;
  std::optional<unsigned> most;
};

/// Reads IEEE Std 1003.1, 9.4, in the "C" locale. Fails with the reason. Refuses long patterns, and
/// what POSIX leaves open: back references, word boundaries and other escapes of letters and
/// digits.
foundation::Result<PatternPart> parsePattern(std::string_view text);

}  // namespace toolchain

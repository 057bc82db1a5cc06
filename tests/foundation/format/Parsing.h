#pragma once

#include "tests/support/Test.h"

/// Tables of what a reader of text takes and what it refuses. All texts are kept for fuzzing.
namespace foundation {

struct TextReader {
  const char* fuzzTarget;
  Result<Value> (*read)(Bytes);

  [[nodiscard]] Result<Value> operator()(const std::string& text) const {
    return read(keepForFuzzing(fuzzTarget, bytesOf(text)));
  }
};

inline constexpr TextReader kPropertyList{"PropertyList", PropertyList::parse};

inline void expectReadings(const TextReader& read,
                           const std::vector<std::pair<std::string, Value>>& readings) {
  for (const auto& [text, expected] : readings) {
    const auto value = read(text);
    ASSERT_EQ(problemOf(value), "") << text;
    EXPECT_EQ(*value, expected) << text;
  }
}

struct Refusal {
  const char* name;
  std::string text;
  /// The error's text after `where`.
  std::string complaint;
};

inline void expectRefusals(const TextReader& read, const std::string& where,
                           const std::vector<Refusal>& refusals) {
  for (const Refusal& c : refusals)
    EXPECT_EQ(problemOf(read(c.text)), where + c.complaint) << c.name;
}

/// ASCII text in units of `size` bytes.
inline std::string widened(std::string_view text, std::size_t size, bool isBigEndian) {
  std::string out;
  for (const char c : text) {
    std::string unit(size, '\0');
    unit[isBigEndian ? size - 1 : 0] = c;
    out += unit;
  }
  return out;
}

}  // namespace foundation

// Tables of what a reader of text takes and what it refuses.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Data.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

namespace foundation {

using Reader = Result<Value> (*)(Bytes);

struct Reading {
  std::string text;
  Value expected;
};

inline void expectReadings(Reader read, const std::vector<Reading>& readings) {
  for (const auto& [text, expected] : readings) {
    const auto value = read(bytesOf(text));
    ASSERT_TRUE(value) << text << ": " << value.error().localizedDescription();
    EXPECT_EQ(*value, expected) << text;
  }
}

struct Refusal {
  const char* name;
  std::string text;
  /// The error's text behind `where`.
  std::string complaint;
};

inline void expectRefusals(Reader read, const std::string& where,
                           const std::vector<Refusal>& refusals) {
  for (const Refusal& c : refusals) {
    const auto value = read(bytesOf(c.text));
    ASSERT_FALSE(value) << c.name;
    EXPECT_EQ(value.error().localizedDescription(), where + c.complaint) << c.name;
  }
}

inline std::string repeated(std::string_view text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
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

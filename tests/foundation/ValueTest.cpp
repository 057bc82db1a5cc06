#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "foundation/Error.h"
#include "foundation/Value.h"

namespace foundation {
namespace {

constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();

TEST(Value, ReadsIntegersAsThePlatformDoes) {
  const std::pair<Value, std::optional<std::int64_t>> cases[] = {
      {Value(true), 1},
      {Value(-7), -7},
      {Value(std::uint64_t{1} << 63), kMost},
      {Value(2.9), 2},
      {Value(-2.9), -2},
      {Value(1e300), kMost},
      {Value(-1e300), kLeast},
      {Value(std::nan("")), 0},
      {Value("  42 apples"), 42},
      {Value("-3"), -3},
      {Value("+3"), 3},
      {Value("+-3"), 0},
      {Value("apples"), 0},
      {Value("99999999999999999999"), kMost},
      {Value("-99999999999999999999"), kLeast},
      {Value(), std::nullopt},
      {Value(Array{1}), std::nullopt},
      {Value(Data()), std::nullopt},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(value.integerValue(), expected);
}

TEST(Value, ReadsBooleansOfNumbersAndStringsOnly) {
  const std::pair<Value, std::optional<bool>> cases[] = {
      {Value(false), false},
      {Value(2), true},
      {Value(0.0), false},
      {Value("YES"), true},
      {Value(" -007"), true},
      {Value("0x"), false},
      {Value("true"), true},
      {Value("no"), false},
      {Value(""), false},
      {Value(), std::nullopt},
      {Value(Dictionary{}), std::nullopt},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(value.boolValue(), expected);
}

TEST(Value, KeepsKindsApart) {
  EXPECT_NE(Value(true), Value(1));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value("1"), Value(1));
  EXPECT_EQ(Value(std::uint64_t{5}), Value(5));
  EXPECT_EQ(Value(std::uint64_t{kMost} + 1).type(), Value::Type::unsignedInteger);
  EXPECT_EQ(Value().type(), Value::Type::null);
  EXPECT_EQ(Value(Error{"d", 1, {}}).type(), Value::Type::error);
  const Value error(Error{"d", 1, {}});
  EXPECT_EQ(error, Value(error));
  EXPECT_NE(error, Value(Error{"d", 1, {}}));
}

TEST(Value, TwoAbsentObjectsAreNotEqual) {
  EXPECT_FALSE(isEqual<std::string>(std::nullopt, std::nullopt));
  EXPECT_FALSE(isEqual<std::string>(std::nullopt, "a"));
  EXPECT_TRUE(isEqual<std::string>("a", "a"));
}

}  // namespace
}  // namespace foundation

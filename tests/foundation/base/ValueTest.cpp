#include <cmath>
#include <limits>
#include <type_traits>

#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Value, ReadsIntegersAsThePlatformDoes) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  const std::pair<Value, std::optional<std::int64_t>> cases[] = {{true, 1},
                                                                 {-7, -7},
                                                                 {std::uint64_t{1} << 63, kMost},
                                                                 {-2.9, -2},
                                                                 {1e300, kMost},
                                                                 {-1e300, kLeast},
                                                                 {std::nan(""), 0},
                                                                 {"  42 apples", 42},
                                                                 {"+3", 3},
                                                                 {"+-3", 0},
                                                                 {"99999999999999999999", kMost},
                                                                 {"-99999999999999999999", kLeast},
                                                                 {Value(), std::nullopt},
                                                                 {Array{1}, std::nullopt}};
  for (const auto& [value, expected] : cases) EXPECT_EQ(value.integerValue(), expected);
}

TEST(Value, ReadsBooleansOfNumbersAndStringsOnly) {
  const std::pair<Value, std::optional<bool>> cases[] = {{false, false},
                                                         {2, true},
                                                         {0.0, false},
                                                         {" -007", true},
                                                         {"0x", false},
                                                         {"no", false},
                                                         {Value(), std::nullopt},
                                                         {Dictionary{}, std::nullopt}};
  for (const auto& [value, expected] : cases) EXPECT_EQ(value.boolValue(), expected);
}

TEST(Value, KeepsKindsApart) {
  static_assert(std::is_convertible_v<bool, Value> && std::is_convertible_v<const char*, Value>);
  static_assert(!std::is_constructible_v<Value, int*> && !std::is_constructible_v<Value, void*>);
  static_assert(!std::is_constructible_v<Value, std::optional<bool>>);
  EXPECT_NE(Value(true), Value(1));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value("1"), Value(1));
  EXPECT_EQ(Value(std::uint64_t{5}), Value(5));
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

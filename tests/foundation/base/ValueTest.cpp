#include <cmath>
#include <limits>

#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Value, ReadsIntegersAndBooleansAsThePlatformDoes) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  const std::tuple<Value, std::optional<std::int64_t>, std::optional<bool>> cases[] = {
      {true, 1, true},
      {-7, -7, true},
      {0.0, 0, false},
      {std::uint64_t{1} << 63, kMost, true},
      {-2.9, -2, true},
      {1e300, kMost, true},
      {-1e300, kLeast, true},
      {std::nan(""), 0, true},
      {"  42 apples", 42, true},
      {"+3", 3, true},
      {"+-3", 0, false},
      {" -007", -7, true},
      {"0x", 0, false},
      {"yes", 0, true},
      {"99999999999999999999", kMost, true},
      {"-99999999999999999999", kLeast, true},
      {Value(), std::nullopt, std::nullopt},
      {Array{1}, std::nullopt, std::nullopt}};
  for (const auto& [value, integer, boolean] : cases) {
    EXPECT_EQ(value.integerValue(), integer);
    EXPECT_EQ(value.boolValue(), boolean);
  }
}

}  // namespace
}  // namespace foundation

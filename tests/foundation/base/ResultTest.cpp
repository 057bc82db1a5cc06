#include "tests/support/Test.h"

namespace foundation {
namespace {

Result<int> half(int number) {
  if (number % 2 != 0) return makeError("Test", number, "odd");
  return number / 2;
}

TEST(Result, StepsFollowEachOtherUntilOneFails) {
  EXPECT_EQ(*half(8).andThen(half).map([](int n) { return std::to_string(n); }), "2");
  EXPECT_EQ(half(6).andThen(half).andThen([](int) -> Result<> { throw 0; }).error().code, 3);
  EXPECT_EQ(*Result<>().andThen([] { return half(2); }).map([](int) {}).map([] { return 7; }), 7);
  const Result<> failed = makeError("Test", 5, "no");
  EXPECT_EQ(failed.andThen([] { return half(2); }).map([](int n) { return n; }).error().code, 5);
}

TEST(Result, AnErrorIsExplainedAndAValueMovedOut) {
  const auto explain = [](const Error& error) { return makeError("Outer", error.code, "why"); };
  EXPECT_EQ(half(3).mapError(explain).error().domain, "Outer");
  EXPECT_EQ(*half(2).mapError(explain), 1);
  EXPECT_TRUE(Result<>().mapError(explain).ok());
  Result<std::unique_ptr<int>> owned = std::make_unique<int>(4);
  EXPECT_EQ(*std::move(owned).map([](std::unique_ptr<int> n) { return *n; }), 4);
  EXPECT_EQ(half(2).value(), 1);
  EXPECT_EQ(half(3).value(), std::nullopt);
}

}  // namespace
}  // namespace foundation

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "foundation/base/Result.h"

namespace foundation {
namespace {

Result<int> half(int number) {
  if (number % 2 != 0) return makeError("Test", number, "odd");
  return number / 2;
}

TEST(Result, StepsFollowEachOtherUntilOneFails) {
  EXPECT_EQ(*half(8).andThen(half).map([](int n) { return std::to_string(n); }), "2");
  int calls = 0;
  const auto failed = half(6).andThen(half).andThen([&](int) -> Result<> {
    ++calls;
    return {};
  });
  EXPECT_EQ(failed.error().code, 3);
  EXPECT_EQ(calls, 0);

  const Result<int> kept = half(4);
  EXPECT_EQ(*kept.andThen(half), 1);
  EXPECT_EQ(*kept.map([](int n) { return n + 1; }), 3);
  EXPECT_TRUE(kept.map([](int) {}).ok());
  EXPECT_EQ(*kept, 2);
}

TEST(Result, WithoutAValueOnlyTheErrorIsHandedOn) {
  EXPECT_EQ(*Result<>().andThen([] { return half(2); }), 1);
  EXPECT_EQ(*Result<>().map([] { return 7; }), 7);
  const Result<> failed = makeError("Test", 5, "no");
  EXPECT_EQ(failed.andThen([] { return half(2); }).error().code, 5);
  EXPECT_EQ(failed.map([] { return 7; }).error().code, 5);
}

TEST(Result, AnErrorIsExplainedAndAValueMovedOut) {
  const auto explain = [](const Error& error) { return makeError("Outer", error.code, "why"); };
  EXPECT_EQ(half(3).mapError(explain).error().domain, "Outer");
  EXPECT_EQ(*half(2).mapError(explain), 1);
  EXPECT_EQ(Result<>(makeError("Test", 1, "")).mapError(explain).error().domain, "Outer");
  EXPECT_TRUE(Result<>().mapError(explain).ok());

  Result<std::unique_ptr<int>> owned = std::make_unique<int>(4);
  const auto moved = std::move(owned).map([](std::unique_ptr<int> n) { return *n; });
  EXPECT_EQ(*moved, 4);
  EXPECT_EQ(half(2).value(), 1);
  EXPECT_EQ(half(3).value(), std::nullopt);
}

}  // namespace
}  // namespace foundation

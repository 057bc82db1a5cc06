#include "preparation/QVTCodeSignedResource.h"
#include "tests/support/Test.h"

namespace {

TEST(CodeSignedResource, EqualityNeedsEveryPartPresent) {
  QVTCodeSignedResource full;
  full.setCreationDate(Date(5s));
  full.setPath("/a");
  full.setBundleIdentifier("x");
  EXPECT_TRUE(full.isEqual(full));
  for (const auto& change : std::vector<std::function<void(QVTCodeSignedResource&)>>{
           [](auto& other) { other.setCreationDate(Date(6s)); },
           [](auto& other) { other.setPath("/b"); },
           [](auto& other) { other.setBundleIdentifier("y"); },
       }) {
    auto other = full;
    change(other);
    EXPECT_FALSE(full.isEqual(other));
  }
  EXPECT_THAT(full.description(),
              testing::MatchesRegex("<QVTCodeSignedResource: 0x[0-9a-f]+ x \\(null\\) \\(null\\) "
                                    "1970-01-01 00:00:05 \\+0000>"));
}

}  // namespace

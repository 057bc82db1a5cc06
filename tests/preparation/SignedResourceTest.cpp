#include "preparation/QVTCodeSignedResource.h"
#include "tests/support/Test.h"

namespace {

TEST(CodeSignedResource, EqualityNeedsEveryPartPresent) {
  QVTCodeSignedResource full;
  full.setCreationDate(Date(5s));
  full.setPath("/a");
  full.setBundleIdentifier("x");
  EXPECT_TRUE(full.isEqual(full));
  auto later = full;
  later.setCreationDate(Date(6s));
  auto elsewhere = full;
  elsewhere.setPath("/b");
  auto renamed = full;
  renamed.setBundleIdentifier("y");
  for (const auto& other : {later, elsewhere, renamed}) EXPECT_FALSE(full.isEqual(other));
  EXPECT_FALSE(QVTCodeSignedResource().isEqual(QVTCodeSignedResource()));
  EXPECT_THAT(full.description(),
              testing::MatchesRegex("<QVTCodeSignedResource: 0x[0-9a-f]+ x \\(null\\) \\(null\\) "
                                    "1970-01-01 00:00:05 \\+0000>"));
}

}  // namespace

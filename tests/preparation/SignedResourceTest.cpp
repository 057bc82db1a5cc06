#include "preparation/QVTCodeSignedResource.h"
#include "tests/support/Test.h"

namespace {

QVTCodeSignedResource record(std::optional<int> created, std::optional<std::string> path,
                             std::optional<std::string> identifier) {
  QVTCodeSignedResource resource;
  if (created) resource.setCreationDate(Date(std::chrono::seconds(*created)));
  resource.setPath(std::move(path));
  resource.setBundleIdentifier(std::move(identifier));
  return resource;
}

TEST(CodeSignedResource, EqualityNeedsEveryPartPresent) {
  const auto full = record(1425211200, "/a", "x");
  EXPECT_TRUE(full.isEqual(full));
  for (const auto& other :
       {record(6, "/a", "x"), record(1425211200, "/b", "x"), record(1425211200, "/a", "y")}) {
    EXPECT_FALSE(full.isEqual(other));
  }
  for (const auto& partial : {record({}, "/a", "x"), record(5, {}, "x"), record(5, "/a", {})}) {
    EXPECT_FALSE(partial.isEqual(partial));
  }
  EXPECT_THAT(full.description(),
              testing::MatchesRegex("<QVTCodeSignedResource: 0x[0-9a-f]+ x \\(null\\) \\(null\\) "
                                    "2015-03-01 12:00:00 \\+0000>"));
}

}  // namespace

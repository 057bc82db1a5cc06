#include "preparation/QVTCodeSignedResource.h"
#include "tests/support/Test.h"

namespace {

TEST(CodeSignedResource, EqualityNeedsEveryPartPresent) {
  const auto record = [](int created, const char* path, const char* identifier) {
    QVTCodeSignedResource resource;
    if (created != 0) resource.setCreationDate(Date(std::chrono::seconds(created)));
    if (path) resource.setPath(path);
    if (identifier) resource.setBundleIdentifier(identifier);
    return resource;
  };
  const auto full = record(5, "/a", "x");
  EXPECT_TRUE(full.isEqual(full));
  for (const auto& other : {record(6, "/a", "x"), record(5, "/b", "x"), record(5, "/a", "y")}) {
    EXPECT_FALSE(full.isEqual(other));
  }
  for (const auto& partial :
       {record(0, "/a", "x"), record(5, nullptr, "x"), record(5, "/a", nullptr)}) {
    EXPECT_FALSE(partial.isEqual(partial));
  }
  EXPECT_THAT(full.description(),
              testing::MatchesRegex("<QVTCodeSignedResource: 0x[0-9a-f]+ x \\(null\\) \\(null\\) "
                                    "1970-01-01 00:00:05 \\+0000>"));
}

}  // namespace

#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "preparation/QVTCodeSignedResource.h"

namespace {

using foundation::Date;
using std::chrono::seconds;

QVTCodeSignedResource record(std::optional<int> created, std::optional<std::string> path,
                             std::optional<std::string> identifier) {
  QVTCodeSignedResource resource;
  if (created) resource.setCreationDate(Date(seconds(*created)));
  resource.setPath(std::move(path));
  resource.setBundleIdentifier(std::move(identifier));
  return resource;
}

TEST(CodeSignedResource, EqualityNeedsEveryPartPresent) {
  const auto full = record(5, "/a", "x");
  EXPECT_TRUE(full.isEqual(record(5, "/a", "x")));
  EXPECT_FALSE(full.isEqual(record(6, "/a", "x")));
  EXPECT_FALSE(full.isEqual(record(5, "/b", "x")));
  EXPECT_FALSE(full.isEqual(record(5, "/a", "y")));
  for (const auto& partial : {record(std::nullopt, "/a", "x"), record(5, std::nullopt, "x"),
                              record(5, "/a", std::nullopt)}) {
    EXPECT_FALSE(partial.isEqual(partial));
  }
}

TEST(CodeSignedResource, DescribesItself) {
  auto resource = record(1425211200, "/secret/path", "a.b");
  resource.setDisplayVersion("1.2");
  EXPECT_TRUE(
      std::regex_match(resource.description(),
                       std::regex("<QVTCodeSignedResource: 0x[0-9a-f]+ a\\.b 1\\.2 \\(null\\) "
                                  "2015-03-01 12:00:00 \\+0000>")))
      << resource.description();
  EXPECT_EQ(resource.displayDate(), resource.creationDate());
}

}  // namespace

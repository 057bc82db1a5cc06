#include "foundation/base/Format.h"
#include "inspect/EntitlementGrants.h"
#include "tests/support/Test.h"

namespace {

TEST(EntitlementGrants, CoverWhatAProfileSays) {
  const std::tuple<Value, Value, bool> cases[] = {
      {"TEAM.*", "OTHER.com.example", false},
      {"TEAM.a", "TEAM.ab", false},
      {"*", Array{"anything", "else"}, true},
      {Array{"TEAM.*", "x"}, Array{"TEAM.a", "x"}, true},
      {Array{"TEAM.*"}, Array{"TEAM.a", "y"}, false},
      {Array{"a", "b"}, "b", true},
      {true, false, true},
      {false, true, false},
      {"production", true, false},
      {1, 1, true}};
  for (const auto& [pattern, value, isGranted] : cases) {
    EXPECT_EQ(inspect::grants(pattern, value), isGranted)
        << foundation::singleLineDescription(pattern) << " for "
        << foundation::singleLineDescription(value);
  }
}

}  // namespace

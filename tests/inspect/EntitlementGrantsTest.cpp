#include "foundation/base/Format.h"
#include "inspect/EntitlementGrants.h"
#include "tests/support/Test.h"

namespace {

TEST(EntitlementGrants, CoverWhatAProfileSays) {
  const struct {
    Value pattern;
    Value value;
    bool granted;
  } cases[] = {{"TEAM.*", "TEAM.com.example", true},
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
  for (const auto& c : cases) {
    EXPECT_EQ(inspect::grants(c.pattern, c.value), c.granted)
        << foundation::singleLineDescription(c.pattern) << " for "
        << foundation::singleLineDescription(c.value);
  }
}

}  // namespace

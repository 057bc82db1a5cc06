#include "foundation/app/UserDefaults.h"
#include "tests/support/Test.h"

namespace {

using foundation::UserDefaults;

TEST(UserDefaults, TakesPairsFromTheCommandLine) {
  const struct {
    std::vector<std::string> arguments;
    const char* key;
    std::optional<std::string> expected;
  } cases[] = {
      {{"sendoff", "K", "S", "-emails", "a,b"}, "emails", "a,b"},
      {{"-emails", "first", "-emails", "last"}, "emails", "last"},
      {{"-emails", "kept", "-emails", "-debug", "1"}, "emails", "kept"},
      {{"-emails", "-debug", "1"}, "debug", "1"},
      {{"-emails"}, "emails", std::nullopt},
      {{"-emails", ""}, "emails", ""},
      {{"--debug", "1"}, "debug", std::nullopt},
      {{"-", "x"}, "", std::nullopt},
      {{"emails", "x"}, "emails", std::nullopt},
  };
  for (const auto& c : cases) {
    UserDefaults defaults;
    defaults.setArguments(c.arguments);
    EXPECT_EQ(defaults.stringForKey(c.key), c.expected) << testing::PrintToString(c.arguments);
  }
}

TEST(UserDefaults, ASuiteIsReadAtEachLookUpAndComesAfterTheArguments) {
  const TemporaryFolder home;
  const ScopedEnvironment environment("HOME", home.path().c_str());
  UserDefaults defaults;
  defaults.setArguments({"-both", "argument"});
  defaults.addSuiteNamed("some.other.program");
  EXPECT_EQ(defaults.objectForKey("only"), std::nullopt);
  writePlist(home / "Library/Preferences/some.other.program.plist",
             {{"both", "suite"}, {"only", 5}});
  EXPECT_EQ(defaults.objectForKey("only"), Value(5));
  EXPECT_EQ(defaults.stringForKey("only"), std::nullopt);
  EXPECT_EQ(defaults.stringForKey("both"), "argument");
}

}  // namespace

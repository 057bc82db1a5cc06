#include "foundation/app/UserDefaults.h"
#include "tests/support/Test.h"

namespace {

TEST(UserDefaults, TakesPairsFromTheCommandLineAndThenFromASuite) {
  const TemporaryFolder home;
  const ScopedEnvironment environment("HOME", home.path().c_str());
  foundation::UserDefaults defaults;
  defaults.addSuiteNamed("some.other.program");
  EXPECT_EQ(defaults.objectForKey("only"), std::nullopt);
  writePlist(home / "Library/Preferences/some.other.program.plist", {{"e", "suite"}, {"only", 5}});
  EXPECT_EQ(defaults.objectForKey("only"), Value(5));
  EXPECT_EQ(defaults.stringForKey("only"), std::nullopt);
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"sendoff", "K", "S", "-e", "a,b"}, "a,b"},
      {{"-e", "first", "-e", "last"}, "last"},
      {{"-e", "kept", "-e", "-debug", "1"}, "kept"},
      {{"-d", "-e", "1"}, "1"},
      {{"-e", ""}, ""},
      {{"-e"}, "suite"},
      {{"--e", "1", "-", "x"}, "suite"},
      {{"e", "x"}, "suite"}};
  for (const auto& [arguments, expected] : cases) {
    defaults.setArguments(arguments);
    EXPECT_EQ(defaults.stringForKey("e"), expected) << testing::PrintToString(arguments);
  }
}

}  // namespace

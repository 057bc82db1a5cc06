#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolchain/codesign/Options.h"

namespace toolchain::codesign {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

Options parsed(const std::vector<std::string>& arguments) {
  const auto options = parseOptions(arguments);
  EXPECT_TRUE(options) << options.error().localizedDescription();
  return options ? *options : Options();
}

TEST(OptionsTest, SigningInEveryOrderAndSpelling) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"--sign", "ID", "--all-architectures", "--force", "--keychain", "K", "--entitlements",
            "E", "A.app"},
           {"A.app", "-fs", "ID", "--keychain=K", "--entitlements=E"},
           {"--entitlements", "E", "-fsID", "--keychain", "first", "--keychain", "K", "--",
            "A.app"},
       }) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Options options = parsed(arguments);
    EXPECT_EQ(options.operation, Operation::sign);
    EXPECT_EQ(options.identity, "ID");
    EXPECT_TRUE(options.force);
    EXPECT_FALSE(options.deep);
    EXPECT_THAT(options.keychain, Optional(std::string("K")));
    EXPECT_THAT(options.entitlements, Optional(std::string("E")));
    EXPECT_THAT(options.operands, ElementsAre("A.app"));
  }
  EXPECT_EQ(parsed({"--sign", "-", "A.app"}).identity, "-");
  EXPECT_EQ(parsed({"-s", "-f", "A.app"}).identity, "-f");
  EXPECT_THAT(parsed({"-s", "ID", "--", "-odd", "B.app"}).operands, ElementsAre("-odd", "B.app"));
}

/// The first -v asks for a verification only where nothing else is asked for.
TEST(OptionsTest, OperationAndVerbosity) {
  struct Case {
    std::vector<std::string> arguments;
    Operation operation;
    int verbosity;
  };
  for (const auto& [arguments, operation, verbosity] : std::vector<Case>{
           {{"-v", "A"}, Operation::verify, 0},
           {{"-vv", "A"}, Operation::verify, 1},
           {{"--verify", "A"}, Operation::verify, 0},
           {{"A", "--verify", "-vv", "--strict"}, Operation::verify, 2},
           {{"--verbose=3", "A"}, Operation::verify, 2},
           {{"-d", "A"}, Operation::display, 0},
           {{"-dvvv", "A"}, Operation::display, 3},
           {{"-v", "--display", "-v", "A"}, Operation::display, 2},
           {{"-vs", "ID", "A"}, Operation::sign, 1},
       }) {
    const Options options = parsed(arguments);
    EXPECT_EQ(options.operation, operation) << testing::PrintToString(arguments);
    EXPECT_EQ(options.verbosity, verbosity) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(parsed({"--help"}).operation, Operation::help);
}

TEST(OptionsTest, DisplayNamesItsFiles) {
  const Options options =
      parsed({"--display", "--resource-rules", "rules", "--entitlements", ":ents", "-r-", "A.app"});
  EXPECT_THAT(options.resourceRules, Optional(std::string("rules")));
  EXPECT_THAT(options.entitlements, Optional(std::string(":ents")));
  EXPECT_THAT(options.requirements, Optional(std::string("-")));
  EXPECT_THAT(parsed({"-dr", "file", "A"}).requirements, Optional(std::string("file")));
}

TEST(OptionsTest, WrongCommandLinesNameTheArgument) {
  struct Case {
    std::vector<std::string> arguments;
    const char* complaint;
  };
  for (const auto& [arguments, complaint] : std::vector<Case>{
           {{}, "nothing to do"},
           {{"A.app"}, "nothing to do"},
           {{"-s"}, "\"--sign\" needs a value"},
           {{"-v", "--keychain"}, "\"--keychain\" needs a value"},
           {{"-s", "ID"}, "no code given"},
           {{"-s", "ID", "-d", "A"}, "only one of"},
           {{"--verify", "-d", "A"}, "only one of"},
           {{"--force=yes", "-s", "ID", "A"}, "\"--force\" takes no value"},
           {{"--preserve", "-v", "A"}, "unrecognized option \"--preserve\""},
           {{"-vz", "A"}, "unrecognized option \"-z\""},
           {{"--verbose=many", "A"}, "\"many\" is not a number"},
           {{"-s", "ID", "--resource-rules", "R", "A"}, "\"--resource-rules\" goes with --display"},
           {{"-v", "-r-", "A"}, "\"--requirements\" goes with --display"},
       }) {
    const auto options = parseOptions(arguments);
    ASSERT_FALSE(options) << testing::PrintToString(arguments);
    EXPECT_THAT(options.error().localizedDescription(), HasSubstr(complaint));
  }
}

}  // namespace
}  // namespace toolchain::codesign

// What the tool does before it looks at any app, and how it ends a failed run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Sendoff/CommandLine.h"
#include "Sendoff/DistributionUpload.h"
#include "Sendoff/RunSequence.h"
#include "tests/Sendoff/ToolRun.h"
#include "tests/support/MachOFixture.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kBanner = "Quorvantile.framework/sendoff 1.3.6 (19)";

const std::string kFirstUse =
    "        sendoff  API_KEY BUILD_SECRET        default options for upload after archive, "
    "with ipa path in environment ";
const std::vector<std::string> kUsage = {
    "Companion to the Quorvantile Mac App for submitting iOS builds for Beta Testing.",
    "     Usage: ",
    kFirstUse,
    "         additional options:",
    "         -help                          display this message",
    "         -ipaPath           [path to IPA]",
    "         -emails            [tester email address],[email]",
    "         -groupAliases      [group build server alias],[group]",
    "         -notesPath         [release notes]",
    "         -notifications     YES|NO",
    "         -debug             YES|NO"};

const std::string kNoArchive =
    "No archive path found in environment. Either use sendoff binary in \"After Archive\" Xcode "
    "build phase or manually provide an IPA with \"-ipaPath\"";

std::vector<std::string> usageAfter(std::vector<std::string> lines) {
  lines.insert(lines.end(), kUsage.begin(), kUsage.end());
  return lines;
}

TEST(CommandLineTest, RunsThatEndBeforeAnyApp) {
  const std::string key = kKey;
  const std::string badKey = "First argument must be API Key, not ";
  const std::string badSecret = "Second argument must be build secret, not ";
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> lines;
  };
  for (const Case& c : std::vector<Case>{
           {{}, usageAfter({kBanner})},
           {{"-help"}, usageAfter({kBanner})},
           {{key}, usageAfter({kBanner})},
           {{key, kSecret, "-foo"}, usageAfter({kBanner, "Invalid argument provided, -foo"})},
           {{"-foo", "-bar"}, usageAfter({kBanner, "Invalid argument provided, -foo"})},
           {{key, kSecret, "-notesPath", "-x"},
            usageAfter({kBanner, "Invalid argument provided, -x"})},
           {{key, kSecret, "-IPAPATH", "a"},
            usageAfter({kBanner, "Invalid argument provided, -IPAPATH"})},
           {{key, kSecret, "--help"}, usageAfter({kBanner, "Invalid argument provided, --help"})},
           {{key, kSecret, "-"}, usageAfter({kBanner, "Invalid argument provided, -"})},
           {{key, kSecret, "-%@%n"}, usageAfter({kBanner, "Invalid argument provided, -%@%n"})},
           {{key.substr(1), kSecret}, {kBanner, badKey + key.substr(1)}},
           {{key + "0", kSecret}, {kBanner, badKey + key + "0"}},
           {{"G" + key.substr(1), kSecret}, {kBanner, badKey + "G" + key.substr(1)}},
           {{"", kSecret}, {kBanner, badKey}},
           {{"\xff", kSecret}, {kBanner, badKey + "(null)"}},
           {{"-ipaPath", "x"}, {kBanner, badKey + "-ipaPath"}},
           {{key, "5ec3g7"}, {kBanner, badSecret + "5ec3g7"}},
           {{key, " "}, {kBanner, badSecret + " "}},
           // From here on key and secret are taken.
           {{key, "f"}, {kBanner, kNoArchive}},
           {{key, ""}, {kBanner, kNoArchive}},
           {{key, kSecret, "-help", "YES"}, {kBanner, kNoArchive}},
           {{key, kSecret, "-ipaPath"}, {kBanner, kNoArchive}},
           {{key, kSecret, "-ipaPath", "/nowhere/\x1b[2Ja%@.ipa"},
            {kBanner, "No file found at path /nowhere/\\u001b[2Ja%@.ipa"}},
           {{key, kSecret, "-ipaPath", "/"},
            {kBanner,
             "Path must be to an .ipa file. To create an .ipa distribute an archive (ad-hoc) using "
             "Xcode."}},
           {{key, kSecret, "-debug", "YES"},
            {kBanner, "Path to IPA expected in environment", kNoArchive}},
           {{key, kSecret, "-debug", "no"}, {kBanner, kNoArchive}},
       }) {
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    const Workplace place;
    const auto result = place.runBare(c.arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(), ElementsAreArray(c.lines));
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(place.leftovers(), IsEmpty());
  }
}

TEST(CommandLineTest, OneMessageHasOneStampHoweverManyLines) {
  const auto result = Workplace().runBare({});
  const std::string stamp =
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
      " sendoff Quorvantile: ";
  EXPECT_THAT(result.output, testing::MatchesRegex(stamp + "Quorvantile[^\n]*\n" + stamp +
                                                   "Companion[^\n]*\n     Usage: \n(.|\n)*NO\n"));
}

TEST(CommandLineTest, PlainFunctions) {
  EXPECT_THAT(stripWhitespaceFromStrings({" a b ", "\tc\n", "", "  "}),
              ElementsAre("ab", "\tc\n", "", ""));
  EXPECT_EQ(deviceFamilyNames(nullptr), "");
  const foundation::Value families = foundation::Array{1, "1", true, 2};
  EXPECT_EQ(deviceFamilyNames(&families), "iPhone,unknown,unknown,iPad");
  EXPECT_THAT(validationHint("com.%@.app\x1b\n", "https://a/%40%20?x=%d"),
              AllOf(HasSubstr("bundle ID com.%@.app\\u001b\\n in"),
                    HasSubstr("going here: https://a/%40%20?x=%d\n Then")));
}

/// A failing run of the tool below shells that are named like Apple's programs.
class BuildTreeTest : public testing::Test {
 protected:
  /// Runs `script` in a shell whose process has this name; `$tool` fails, `$shell` starts further
  /// shells: `$shell/Xcode -c …`.
  RunResult runBelow(const std::string& name, const std::string& script) {
    for (const char* const copy : {"Xcode", "xcodebuild", "make"}) {
      fs::copy_file("/bin/sh", shells_ / copy, fs::copy_options::skip_existing);
    }
    auto environment = place_.environment();
    environment["tool"] = kTool;
    environment["shell"] = shells_.path();
    return runProgram({.command = {shells_ / name, "-c", script}, .environment = environment});
  }

  TemporaryFolder shells_;
  Workplace place_;
};

// The outer shell is the one that a signal reaches: the parent of the tool's parent.
TEST_F(BuildTreeTest, InterruptsTheBuildAboveTheScript) {
  struct Case {
    const char* outer;
    const char* inner;
    bool interrupted;
  };
  for (const Case& c : {Case{"xcodebuild", "make", true}, Case{"make", "xcodebuild", true},
                        Case{"make", "make", false}, Case{"Xcode", "make", false},
                        Case{"Xcode", "xcodebuild", false}, Case{"xcodebuild", "Xcode", false}}) {
    SCOPED_TRACE(std::string(c.outer) + " > " + c.inner);
    const auto result =
        runBelow(c.outer, std::string("trap 'echo interrupted' INT; \"$shell/") + c.inner +
                              "\" -c '\"$tool\" x y; echo \"tool $?\"'; :");
    const auto lines = result.messages();
    ASSERT_GE(lines.size(), 3u) << result.output;
    EXPECT_EQ(lines[1], "First argument must be API Key, not x");
    EXPECT_EQ(lines[2], "tool 1");
    EXPECT_EQ(lines.back() == "interrupted", c.interrupted) << result.output;
  }
}

TEST_F(BuildTreeTest, AnUnknownOptionInterruptsNothing) {
  const auto result = runBelow("xcodebuild",
                               "trap 'echo interrupted' INT; \"$shell/make\" -c "
                               "'\"$tool\" -foo; echo \"tool $?\"'; :");
  EXPECT_EQ(result.messages().back(), "tool 1");
}

// There the parent of the first process is unknown (0), and the signal goes to the tool's own
// group: to that first process, too, while the tool's own outcome stands.
TEST_F(BuildTreeTest, AtTheTopOfAPidNamespaceTheOwnGroupIsInterrupted) {
  if (runCommand({"unshare", "--pid", "--fork", "--mount-proc", "true"}).status != 0) {
    GTEST_SKIP() << "no pid namespaces here";
  }
  const auto result = runBelow("make",
                               "setsid --wait unshare --pid --fork --mount-proc "
                               "\"$shell/xcodebuild\" -c 'trap \"echo interrupted\" INT; "
                               "\"$tool\" x y; echo \"tool $?\"'");
  EXPECT_THAT(result.messages(), ElementsAre(kBanner, "First argument must be API Key, not x",
                                             "interrupted", "tool 1"));
}

}  // namespace
}  // namespace test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/inspect/InspectRun.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Wrong {
  std::vector<std::string> words;
  int status;
  std::string complaint;
};

TEST(InspectCommandLine, SaysWhatIsWrongInOneLine) {
  const test::TemporaryFolder folder;
  const std::string text = folder.write("short", "tiny");
  const std::string notes = folder.write("notes.txt", "What is new: everything.");
  const std::string zip = folder.write("x.ipa", "PK\3\4" + std::string(40, '\0'));
  const std::string java = folder.write(
      "A.class", std::string("\xca\xfe\xba\xbe\0\0\0\x34", 8) + std::string(2000, '\1'));
  const std::string missing = folder / "missing";
  for (const auto& c : {
           Wrong{{}, 2, "Usage: sendoff-inspect COMMAND"},
           Wrong{{"mach"}, 2, "sendoff-inspect: unknown command mach\n"},
           Wrong{{"macho"}, 2, "sendoff-inspect macho: an argument is missing\n"},
           Wrong{{"macho", "a", "b"}, 2, "sendoff-inspect macho: unexpected argument b\n"},
           Wrong{
               {"macho", "a", "--jsn"}, 2, "sendoff-inspect macho: unknown option --jsn (write --"},
           Wrong{{"macho", "a", "--json=1"},
                 2,
                 "sendoff-inspect macho: option --json takes no value\n"},
           Wrong{{"app", "a", "--keychain"},
                 2,
                 "sendoff-inspect app: option --keychain needs a value\n"},
           Wrong{{"profile"}, 2, "sendoff-inspect profile: give either a FILE or --installed\n"},
           Wrong{{"profile", "a", "--installed"}, 2, "sendoff-inspect profile: give either"},
           Wrong{{"project", "a", "--env", "K"},
                 2,
                 "sendoff-inspect project: --env takes NAME=VALUE, not K\n"},
           Wrong{{"macho", missing},
                 1,
                 "sendoff-inspect macho: cannot read " + missing + ": No such file or directory\n"},
           Wrong{{"macho", text},
                 1,
                 "sendoff-inspect macho: cannot read " + text +
                     ": not a regular file, or too short for"},
           Wrong{{"macho", "/bin/sh"},
                 1,
                 "sendoff-inspect macho: cannot read /bin/sh: not a Mach-O file\n"},
           Wrong{{"macho", notes},
                 1,
                 "sendoff-inspect macho: cannot read " + notes + ": not a Mach-O file\n"},
           Wrong{{"macho", zip},
                 1,
                 "sendoff-inspect macho: cannot read " + zip + ": not a Mach-O file\n"},
           Wrong{{"macho", java},
                 1,
                 "sendoff-inspect macho: cannot read " + java + ": not a Mach-O file\n"},
           Wrong{{"macho", ""}, 1, "sendoff-inspect macho: cannot read an empty path: "},
           Wrong{{"macho", "--", "--help"}, 1, "sendoff-inspect macho: cannot read --help: No"},
           Wrong{{"app", missing}, 1, "sendoff-inspect app: nothing is at " + missing},
           Wrong{{"app", text},
                 1,
                 "sendoff-inspect app: cannot read " + text + " as an .ipa: unzip says: [" + text +
                     "] End-of-central-directory signature not found."},
           Wrong{{"app", folder.path()},
                 1,
                 "sendoff-inspect app: cannot read " + folder.path().string() + " as an app"},
           Wrong{{"profile", text}, 1, "sendoff-inspect profile: cannot read " + text},
           Wrong{{"dsym", folder.path()}, 1, "sendoff-inspect dsym: cannot read"},
           Wrong{{"project", folder.path()}, 1, "sendoff-inspect project: cannot read"},
           Wrong{{"arguments", "'open"},
                 1,
                 "sendoff-inspect arguments: the string ends inside a quote"},
           Wrong{{"platform", "amiga"}, 1, "sendoff-inspect platform: unknown platform amiga"},
       }) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const auto outcome = test::inspectRun(c.words);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.standardOutput, "");
    EXPECT_THAT(outcome.standardError, StartsWith(c.complaint));
    if (c.status == 1) {
      EXPECT_EQ(std::ranges::count(outcome.standardError, '\n'), 1);
    }
  }
}

/// The library's own lines, to the console and to the system log, do not stand beside the one line
/// of a failure.
TEST(InspectCommandLine, NothingElseIsWrittenWithAFailure) {
  const test::TemporaryFolder folder;
  const auto damaged =
      folder.write("damaged.mobileprovision",
                   "12345678<?xml version='1.0'?><plist></dict></plist>" + std::string(64, ' '));
  for (const std::vector<std::string>& words : {
           std::vector<std::string>{"app", folder.write("no.ipa", "no zip")},
           {"check", folder / "no.ipa", "--json"},
           {"profile", damaged},
           {"project", folder.write("no.pbxproj", "{ objects = ")},
       }) {
    std::vector<std::string> command = {SENDOFF_INSPECT};
    command.insert(command.end(), words.begin(), words.end());
    const auto result = test::runCommand(command);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, StartsWith("sendoff-inspect " + words[0] + ": cannot read "));
    EXPECT_EQ(std::ranges::count(result.output, '\n'), 1) << result.output;
  }
}

TEST(InspectCommandLine, AnAnswerThatCannotBeWrittenIsAFailure) {
  const auto result =
      test::runCommand({"/bin/sh", "-c", "\"$0\" platform ios 2>&1 >/dev/full", SENDOFF_INSPECT});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output,
            "sendoff-inspect: cannot write to standard output: No space left on device\n");
}

TEST(InspectCommandLine, HelpNamesEveryCommandAndItsOptions) {
  const auto all = test::inspectRun({"--help"});
  EXPECT_EQ(all.status, 0);
  for (const std::string name : {"macho", "app", "profile", "dsym", "project", "archives", "check",
                                 "search-paths", "arguments", "platform"}) {
    EXPECT_THAT(all.standardOutput, HasSubstr("\n  " + name + " "));
    const auto one = test::inspectRun({name, "--help"});
    EXPECT_EQ(one.status, 0);
    EXPECT_THAT(one.standardOutput, StartsWith("Usage: sendoff-inspect " + name));
  }
  EXPECT_THAT(test::inspectRun({"project", "--help"}).standardOutput, HasSubstr("(null)"));
  for (const std::string name : {"macho", "app", "profile"}) {
    EXPECT_THAT(test::inspectRun({name, "--help"}).standardOutput, HasSubstr("[-v]"));
  }
}

TEST(InspectCommandLine, OptionsMayStandAnywhereAndEndAtTwoDashes) {
  const auto document =
      test::inspectDocument({"arguments", "--glued", "--option=-F", "--", "-F/a -F /b"});
  EXPECT_EQ(test::at(document, "values"), (foundation::Array{"/a", "/b"}));
  const auto dashed = test::inspectRun({"arguments", "--", "--option"});
  EXPECT_EQ(dashed.standardOutput, "--option\n");
  EXPECT_EQ(test::inspectRun({"arguments", "--help", "--bogus"}).status, 0);
  EXPECT_EQ(test::inspectRun({"arguments", "--", "--help"}).standardOutput, "--help\n");
  EXPECT_EQ(test::at(test::inspectDocument({"arguments", "a", "--option", "--help"}), "values"),
            foundation::Array{});
}

TEST(InspectSettings, AnswersAsTheLibraryDoes) {
  const test::TemporaryFolder folder;
  std::filesystem::create_directories(folder / "Some Folder");
  const std::string path = folder / "Some Folder";
  EXPECT_EQ(test::inspectRun({"search-paths", path + " /nowhere"}).standardOutput, path + "\n");
  EXPECT_EQ(test::at(test::inspectDocument(
                         {"search-paths", "'Some Folder/**'", "--directory", folder.path()}),
                     "searchPaths"),
            (foundation::Array{"Some Folder/**"}));
  EXPECT_EQ(test::inspectRun({"arguments", "a 'b c' \"\" d\\ e"}).standardOutput, "a\nb c\nd e\n");

  const auto simulator = test::inspectDocument({"platform", "appletvsimulator"});
  EXPECT_EQ(test::textAt(simulator, "identifier"), "tvos");
  EXPECT_EQ(test::textAt(simulator, "displayName"), "tvOS");
  EXPECT_EQ(test::textAt(simulator, "type"), "[3]");
  EXPECT_EQ(test::textAt(test::inspectDocument({"platform", "mac"}), "displayName"), "OS X");
}

}  // namespace

// codesign and codesign_allocate as people and sendoff call them.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/process/ChildProcess.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/OpenCount.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

class ProgramTest : public testing::Test {
 protected:
  /// In the temporary folder, with nothing but a home in its environment.
  [[nodiscard]] Outcome run(const std::vector<std::string>& arguments,
                            const std::string& tool = "codesign") const {
    auto child = foundation::ChildProcess::launch(
        {.executable = TOOLS_FOLDER "/" + tool,
         .arguments = arguments,
         .workingDirectory = folder_.path(),
         .environment = foundation::Environment{{"HOME", folder_.path().string()}}});
    if (!child) throw std::runtime_error(child.error().localizedDescription());
    const auto end = child->waitUntilExit();
    EXPECT_EQ(end.reason, foundation::Termination::Reason::exited);
    return {end.status, std::string(child->readStandardOutputToEnd().text()),
            std::string(child->readStandardErrorToEnd().text())};
  }
  void expect(const std::vector<std::string>& arguments, const Outcome& expected) const {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, expected.status) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, expected.output) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.errors, expected.errors) << testing::PrintToString(arguments);
  }
  void makeApp() const { test::makeApp(folder_.path()); }

  test::TemporaryFolder folder_;
  const std::string identity_ = test::signingFamily().leaf.sha1();
};

/// The runs that the hand-off makes, one after the other.
TEST_F(ProgramTest, ExportSignVerify) {
  makeApp();
  test::writeKeychain(folder_ / "keychain.pem");
  expect({"--display", "--resource-rules", "rules", "--entitlements", ":ents", "Example.app"},
         {1, "", "Example.app: code object is not signed at all\n"});
  EXPECT_THAT(test::contentsOf(folder_ / "rules"), HasSubstr("<key>rules2</key>"));
  EXPECT_THAT(test::contentsOf(folder_ / "ents"),
              AllOf(StartsWith("<?xml"), HasSubstr("ABCDE12345.com.example.app")));

  const std::vector<std::string> sign{"--sign",         identity_,    "--all-architectures",
                                      "--force",        "--keychain", "keychain.pem",
                                      "--entitlements", "ents",       "Example.app"};
  expect(sign, {0, "", ""});
  expect(sign, {0, "", "Example.app: replacing existing signature\n"});
  expect(
      {"-vv", "Example.app"},
      {0, "", "Example.app: valid on disk\nExample.app: satisfies its Designated Requirement\n"});
  expect({"-v", "Example.app"}, {0, "", ""});
  folder_.write("rules", "longer than what is written now");
  const Outcome shown =
      run({"--display", "--resource-rules", "rules", "--entitlements", ":-", "Example.app"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.output, test::contentsOf(folder_ / "ents"));
  EXPECT_THAT(shown.errors, AllOf(StartsWith("Executable=/"), EndsWith("Example.app/Example\n")));
  EXPECT_THAT(test::contentsOf(folder_ / "rules"), StartsWith("<?xml"));
  EXPECT_THAT(run({"-d", "-r-", "Example.app"}).output, StartsWith("designated => identifier"));
  EXPECT_EQ(run({"-d", "--entitlements", "blob", "Example.app"}).status, 0);
  EXPECT_EQ(test::contentsOf(folder_ / "blob").substr(0, 4), "\xfa\xde\x71\x71");
}

TEST_F(ProgramTest, IdentitiesOfTheDefaultKeychains) {
  makeApp();
  fs::create_directories(folder_ / "Library/Keychains");
  test::writeKeychain(folder_ / "Library/Keychains/mine.pem");
  expect({"-s", "iPhone Distribution", "Example.app"}, {0, "", ""});
  expect({"-s", identity_, "Example.app"}, {1, "", "Example.app: is already signed\n"});
  // Which are read once, for all code and by whatever way.
  fs::copy(folder_ / "Example.app", folder_ / "Other.app", fs::copy_options::recursive);
  const test::OpenCount opens(folder_ / "Library/Keychains/mine.pem");
  EXPECT_EQ(run({"-fs", identity_, "--keychain", "Library/Keychains/mine.pem", "Example.app",
                 "Other.app"})
                .status,
            0);
  EXPECT_EQ(opens.take(), 1);
}

TEST_F(ProgramTest, StatusesAndStreams) {
  makeApp();
  test::RealImageOptions image;
  test::linkImage(folder_ / "tool", image);
  expect({"-fs", "-", "Example.app", "tool"}, {0, "", ""});
  folder_.write("Example.app/\x1b[2J\u009bextra\nline", "");
  const std::string added =
      "file added: " +
      (fs::canonical(folder_.path()) / "Example.app/\\u001b[2J\\u009bextra\\nline").string() + "\n";
  expect({"-vv", "Example.app", "tool"},
         {1, added,
          "Example.app: a sealed resource is missing or invalid\ntool: valid on disk\n"
          "tool: satisfies its Designated Requirement\n"});
  expect({"-v", "none", "tool"}, {1, "", "none: No such file or directory\n"});
  expect({"-q"}, {2, "", "codesign: unrecognized option \"-q\"\nTry \"codesign --help\".\n"});
  const Outcome help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.output, StartsWith("usage: codesign"));
}

TEST_F(ProgramTest, IdentifiersCannotForgeLines) {
  makeApp();
  folder_.write("Example.app/Info.plist",
                "{CFBundleExecutable = Example; CFBundleIdentifier = \"a\\033[2J\\U009b\\r"
                "Authority=b\";}");
  expect({"-fs", "-", "Example.app"}, {0, "", ""});
  EXPECT_THAT(run({"-dv", "Example.app"}).errors,
              HasSubstr("\nIdentifier=a\\u001b[2J\\u009b\\rAuthority=b\n"));
}

TEST_F(ProgramTest, RoomForSignatures) {
  const fs::path code = folder_ / "code";
  fs::copy_file(test::universalExecutable(), code);
  const auto commandsOf = [&](const char* name) {
    return test::outputOf({test::llvmTool("llvm-otool"), "-l", "-arch", "all", folder_ / name});
  };
  struct Row {
    std::vector<std::string> arguments;
    int status;
    const char* errors;
  };
  for (const auto& [arguments, status, errors] : {
           Row{{"-i", "code", "-a", "armv7", "4096", "-A", "16777228", "0", "8192", "-o", "roomy"},
               0,
               ""},
           Row{{"-i", "roomy", "-r", "-o", "bare"}, 0, ""},
           Row{{"-i", "code", "-a", "arm64", "4096", "-o", "none"},
               1,
               "codesign_allocate: code: no size was given for slice armv7\n"},
           Row{{"-i", "missing", "-r", "-o", "none"}, 1, "codesign_allocate: cannot open missing"},
           Row{{"-i", "code", "-a", "arm65", "16", "-o", "none"},
               2,
               "codesign_allocate: unknown architecture \"arm65\"\nusage: codesign_allocate"},
           Row{{"-i", "code", "-a", "arm64", "x", "-o", "none"},
               2,
               "codesign_allocate: \"x\" is no"},
           Row{{"-i", "code", "-o"}, 2, "codesign_allocate: -o lacks a value"},
           Row{{"-r", "-o", "none"}, 2, "codesign_allocate: no input file"},
           Row{{"-i", "code", "-o", "none"}, 2, "codesign_allocate: no size"},
           Row{{"-p", "code"}, 2, "codesign_allocate: unknown option \"-p\""},
       }) {
    const Outcome outcome = run(arguments, "codesign_allocate");
    EXPECT_EQ(outcome.status, status) << errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith(errors));
    EXPECT_EQ(outcome.errors.empty(), status == 0);
  }
  EXPECT_THAT(commandsOf("roomy"), AllOf(HasSubstr("datasize 4096"), HasSubstr("datasize 8192")));
  EXPECT_THAT(commandsOf("bare"), testing::Not(HasSubstr("LC_CODE_SIGNATURE")));
  EXPECT_FALSE(fs::exists(folder_ / "none"));
  EXPECT_THAT(run({"--help"}, "codesign_allocate").output, StartsWith("usage: codesign_allocate"));
}

/// The caller reads after the end, so a pipe must be able to take everything.
TEST_F(ProgramTest, LongListsAreCutOff) {
  makeApp();
  expect({"-s", "-", "Example.app"}, {0, "", ""});
  for (int i = 0; i < 2000; ++i) folder_.write("Example.app/new/" + std::to_string(i), "");
  const Outcome outcome = run({"-v", "Example.app"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_LE(outcome.output.size(), 32U << 10);
  EXPECT_GT(outcome.output.size(), 30U << 10);
  const auto lines = std::count(outcome.output.begin(), outcome.output.end(), '\n');
  EXPECT_THAT(outcome.output,
              EndsWith("\n(" + std::to_string(2000 - (lines - 1)) + " lines left out)\n"));
}

TEST_F(ProgramTest, ClosedStreamsDoNoHarm) {
  makeApp();
  const std::string shell = "cd " + folder_.path().string() + " && " TOOLS_FOLDER "/codesign ";
  for (const char* arguments : {"-fs - Example.app >&- 2>&- <&-", "-vv Example.app 2>&-",
                                "-vv Example.app 2>/dev/full", "-d -r- Example.app | true"}) {
    EXPECT_EQ(test::runCommand({"sh", "-c", shell + arguments}).status, 0) << arguments;
  }
  const auto full =
      test::runCommand({"sh", "-c", shell + "-d --entitlements :- Example.app >/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.output, HasSubstr("cannot write to standard output"));
}

}  // namespace

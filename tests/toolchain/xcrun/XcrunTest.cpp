#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "toolchain/xcrun/ToolSearch.h"

namespace toolchain {
namespace {

namespace fs = std::filesystem;

/// Folders "host" and "own", each with some of the tools.
class XcrunTest : public testing::Test {
 protected:
  void add(const std::string& path, bool executable = true) const {
    folder_.write(path, "#!/bin/sh\n");
    fs::permissions(folder_ / path, executable ? fs::perms(0755) : fs::perms(0644));
  }
  [[nodiscard]] std::string found(std::string_view name, const std::string& searchPath) const {
    const auto tool = findTool(name, searchPath, folder_ / "own");
    return tool ? tool->lexically_relative(folder_.path()).string() : "";
  }

  test::TemporaryFolder folder_;
};

TEST_F(XcrunTest, ToolsOfTheHostWinAndTheOwnFolderComesLast) {
  add("host/both");
  add("own/both");
  add("own/ours");
  add("own/plain", false);
  add("other/plain");
  fs::create_directories(folder_ / "host/ours");
  fs::create_directory_symlink(folder_ / "own", folder_ / "alias");
  const std::string own = (folder_ / "own").string();
  const std::string host = (folder_ / "host").string();
  const std::string alias = (folder_ / "alias").string();

  EXPECT_EQ(found("both", own + ":" + host), "host/both");
  EXPECT_EQ(found("both", alias + "/::" + host), "host/both");
  EXPECT_EQ(found("both", own), "own/both");
  EXPECT_EQ(found("ours", host), "own/ours") << "a folder is no tool";
  EXPECT_EQ(found("ours", ""), "own/ours");
  EXPECT_EQ(found("plain", (folder_ / "other").string()), "other/plain");
  for (const char* name : {"plain", "", "missing", "../host/both", "/bin/sh", ".", ".."}) {
    EXPECT_EQ(found(name, host), "") << name;
  }
}

TEST_F(XcrunTest, CommandLines) {
  add("own/ours");
  const std::string path = (folder_ / "own/ours").string() + "\n";
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errorOutput;
  };
  for (const auto& [arguments, status, output, errorOutput] : std::vector<Case>{
           {{"--find", "ours"}, 0, path, ""},
           {{"-f", "ours"}, 0, path, ""},
           {{"--find=ours"}, 0, path, ""},
           {{"--find", "gone"},
            72,
            "",
            "xcrun: error: unable to find utility \"gone\", not a developer tool or in PATH\n"},
           {{"--find"}, 64, "", "usage: "},
           {{}, 64, "", "usage: "},
           {{"ours"}, 64, "", "usage: "},
           {{"--help"}, 0, "usage: ", ""},
       }) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const auto outcome = runXcrun(arguments, "", folder_ / "own");
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.output, testing::StartsWith(output));
    EXPECT_EQ(outcome.output.empty(), output.empty());
    EXPECT_THAT(outcome.errorOutput, testing::StartsWith(errorOutput));
    EXPECT_EQ(outcome.errorOutput.empty(), errorOutput.empty());
  }
}

/// The real program finds what lies beside it, with and without an environment.
TEST_F(XcrunTest, TheProgramFindsItsNeighbours) {
  const std::string tools = TOOLS_FOLDER;
  for (const std::string& path :
       std::vector<std::string>{"PATH=" + tools, "PATH=/nowhere", "X=Y"}) {
    const auto result =
        test::runCommand({"env", "-i", path, tools + "/xcrun", "--find", "codesign"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, tools + "/codesign\n");
  }
  const auto closed = test::runCommand({"sh", "-c", tools + "/xcrun --find codesign >&-"});
  EXPECT_EQ(closed.status, 1);
}

/// What `readelf` lists as needed libraries.
// The undefined-behaviour sanitizer refers to the type information of every class, and so to all of
// their code.
#ifndef __SANITIZE_ADDRESS__
std::string librariesOf(const std::string& program) {
  const auto result =
      test::runCommand({"readelf", "--dynamic", std::string(TOOLS_FOLDER) + "/" + program});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, testing::HasSubstr("(NEEDED)"));
  return result.output;
}

TEST(Programs, LinkOnlyWhatTheyUse) {
  using testing::HasSubstr;
  using testing::Not;
  EXPECT_THAT(librariesOf("xcrun"), HasSubstr("libc.so"));
  for (const char* library : {"libcurl", "libssl", "libcrypto", "libexpat"}) {
    EXPECT_THAT(librariesOf("xcrun"), Not(HasSubstr(library)));
    EXPECT_THAT(librariesOf("codesign_allocate"), Not(HasSubstr(library)));
  }
  for (const char* library : {"libcurl", "libssl"}) {
    EXPECT_THAT(librariesOf("codesign"), Not(HasSubstr(library)));
  }
}
#endif

}  // namespace
}  // namespace toolchain

// A machine that runs out of something, and tools that fail, met by whole runs.
#include <algorithm>
#include <fstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kNotPrepared = "Failed to prepare the binary for release";
const std::string kPackaging =
    "Unable to package source due to error: Error Domain=QVTIPABuilderErrorDomain Code=";
const std::string kInflation =
    "Unable to inflate IPA to temporary path: Error Domain=QVTFileSystemUtilsErrorDomain Code=-1";

class MachineFaultTest : public testing::Test {
 protected:
  MachineFaultTest() { place_.environment()["PATH"] = tools_.path().string() + ":" + path_; }

  RunResult run(const std::function<void()>& prepare = {}) {
    return place_.run({"-ipaPath", ipa_, "-QuorvantileAPIEndpoint", service_.url()}, prepare);
  }
  RunResult runArchive(const std::function<void()>& prepare = {}) {
    place_.environment()["ARCHIVE_PRODUCTS_PATH"] = products_;
    auto result = place_.run({"-QuorvantileAPIEndpoint", service_.url()}, prepare);
    place_.environment().erase("ARCHIVE_PRODUCTS_PATH");
    return result;
  }
  /// A tool before all others of its name.
  fs::path writeTool(const std::string& name, const std::string& script) {
    fs::remove(tools_ / name);
    const fs::path tool = tools_.write(name, script);
    fs::permissions(tool, fs::perms(0755));
    return tool;
  }
  /// No app and no .ipa; the work folder of a packaging that failed may be there, and what `unzip`
  /// has written before it failed.
  void expectCleanedUp() {
    for (const std::string& name : place_.leftovers()) {
      if (inflationFailed_ && name.starts_with("Example/")) continue;
      if (name.starts_with("com.quorvantile.ipas/")) continue;
      EXPECT_THAT(name, Not(testing::EndsWith(".ipa")));
      EXPECT_THAT(name, Not(testing::EndsWith(".app")));
      EXPECT_THAT(name, Not(HasSubstr("claims")));
    }
    EXPECT_EQ(contentsOf(ipa_), original_);
    for (const auto& entry : fs::directory_iterator(place_.temporary())) fs::remove_all(entry);
  }

  StandInService service_;
  TemporaryFolder tools_;
  Workplace place_;
  std::string path_ = place_.environment().at("PATH");
  fs::path app_ = makeApp(place_.files());
  fs::path ipa_ = packIPA(app_, place_.files() / "Example.ipa");
  fs::path products_ = makeArchive(place_.files() / "Example.xcarchive", app_);
  std::string original_ = contentsOf(ipa_);
  bool inflationFailed_ = false;
};

TEST_F(MachineFaultTest, ToolsThatFail) {
  const std::string killed = "#!/bin/sh\nkill -9 $$\n";
  const auto notExecutable = [](const fs::path& tool) { fs::permissions(tool, fs::perms(0644)); };
  struct Row {
    const char* name;
    const char* tool;
    std::string script;
    /// The line that the run is to end with, as it begins, and a part of it.
    std::string line;
    std::string part;
    /// On standard error.
    std::string cause = "";
    std::function<void(const fs::path&)> damage = {};
  };
  for (const Row& row : std::vector<Row>{
           {"unzip is killed", "unzip", killed, kInflation, "status=9",
            "/unzip was ended by signal 9"},
           {"zip is killed", "zip", killed, kPackaging + "-8", "status=9"},
           {"xcrun is killed", "xcrun", killed, kPackaging + "-12", "",
            "/xcrun was ended by signal 9"},
           {"codesign is killed on export", "codesign",
            "#!/bin/sh\n[ \"$1\" = -vv ] || kill -9 $$\n", kPackaging + "-10", "",
            "ended with status 9"},
           {"codesign is killed on signing", "codesign",
            "#!/bin/sh\n[ \"$1\" = --sign ] && kill -9 $$\nexec " +
                (kSigningTools / "codesign").string() + " \"$@\"\n",
            kPackaging + "-6", "status=9"},
           {"codesign complains about the export", "codesign",
            "#!/bin/sh\n[ \"$1\" = -vv ] || { echo no memory left >&2; exit 3; }\n",
            kPackaging + "-10", "", "no memory left"},
           {"unzip cannot start", "unzip", "#!/nowhere/sh\n", "Unexpected error: cannot launch ",
            "/unzip: "},
           {"zip cannot start", "zip", "#!/nowhere/sh\n", "Unexpected error: cannot launch ",
            "/zip: "},
           {"codesign cannot start", "codesign", "#!/nowhere/sh\n",
            "Unexpected error: cannot launch ", "/codesign: "},
           {"codesign is not executable", "codesign", "", "Unexpected error: cannot launch ",
            "/codesign: Permission denied", "", notExecutable},
       }) {
    SCOPED_TRACE(row.name);
    const fs::path tool = writeTool(row.tool, row.script);
    // Found by the stand-in for xcrun, which looks beside itself.
    if (std::string_view(row.tool) == "codesign") {
      writeTool("xcrun", "#!/bin/sh\necho \"${0%/*}/$2\"\n");
      writeTool("codesign_allocate", "#!/bin/sh\n");
    }
    if (row.damage) row.damage(tool);
    for (const RunResult& result : {run(), runArchive()}) {
      const bool skipsUnzip = std::string_view(row.tool) == "unzip" && result.status == 0;
      if (skipsUnzip) continue;
      EXPECT_EQ(result.status, 1);
      EXPECT_THAT(result.messages(),
                  testing::Contains(testing::AllOf(StartsWith(row.line), HasSubstr(row.part))));
      EXPECT_THAT(result.errors, HasSubstr(row.cause));
    }
    expectCleanedUp();
    for (const auto& entry : fs::directory_iterator(tools_.path())) fs::remove(entry);
  }
}

/// Whose answer is then the name of no tool.
TEST_F(MachineFaultTest, WhichIsKilledOrMissing) {
  if (runCommand({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mounts here";
  auto environment = place_.environment();
  environment["killed"] = writeTool("killed", "#!/bin/sh\nkill -9 $$\n");
  environment["ipa"] = ipa_;
  for (const auto& [damage, cause] :
       {std::pair("mount --bind \"$killed\" /usr/bin/which", " was ended by signal 9\n"),
        std::pair("mount -t tmpfs none /usr/bin", " is missing, which finds tools in PATH\n")}) {
    const auto result = runProgram({.command = {"/usr/bin/unshare", "-m", "sh", "-c",
                                                std::string(damage) + " && exec " + kTool + " " +
                                                    kKey + " " + kSecret + " -ipaPath \"$ipa\""},
                                    .environment = environment});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, testing::EndsWith("/usr/bin/which" + std::string(cause)));
    EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
    EXPECT_THAT(result.messages().back(), StartsWith("Unexpected error: cannot launch"));
    expectCleanedUp();
  }
}

/// A child of the tool's child has its streams, and keeps them.
TEST_F(MachineFaultTest, GrandchildrenThatHoldTheStreams) {
  for (const char* const name : {"unzip", "zip"}) {
    SCOPED_TRACE(name);
    const std::string real = "/usr/bin/" + std::string(name);
    writeTool(name, "#!/bin/sh\n/bin/sleep 40 &\n" + real + " \"$@\"\n");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(run().status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));
    writeTool(name, "#!/bin/sh\n/bin/sleep 40 &\nexit 7\n");
    const auto failed = run();
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output, HasSubstr("status=7"));
    expectCleanedUp();
    fs::remove(tools_ / name);
  }
}

TEST_F(MachineFaultTest, OutOfDescriptors) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's checks need descriptors of their own";
#endif
  int succeeded = 0;
  for (const rlim_t limit : {4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 18, 20, 24, 32}) {
    SCOPED_TRACE(limit);
    const std::size_t uploads = service_.calls().size();
    const auto result = run([limit] {
      // Whoever started the tests may have left descriptors open, which would count.
      ::close_range(STDERR_FILENO + 1, ~0U, 0);
      const struct rlimit few { limit, limit };
      ::setrlimit(RLIMIT_NOFILE, &few);
    });
    ASSERT_TRUE(result.status) << "signal " << result.signal << "\n" << result.errors;
    if (result.status == 0) {
      ++succeeded;
      EXPECT_EQ(service_.calls().size(), uploads + 2);
    } else {
      EXPECT_EQ(result.status, 1);
      EXPECT_THAT(result.messages(), testing::SizeIs(testing::Ge(2u))) << result.errors;
    }
    expectCleanedUp();
  }
  EXPECT_GT(succeeded, 0);
  EXPECT_LT(succeeded, 16);
}

TEST_F(MachineFaultTest, OutOfMemoryForAHugeIPA) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer takes more memory than the limit";
#endif
  writeTool("zip", "#!/bin/sh\n/usr/bin/truncate -s 4G \"$4\"\n");
  const auto result = run([] {
    const struct rlimit limit { 1 << 30, 1 << 30 };
    ::setrlimit(RLIMIT_AS, &limit);
  });
  EXPECT_EQ(result.status, 1);
  const auto lines = result.messages();
  ASSERT_EQ(lines.size(), 3u) << result.output;
  EXPECT_THAT(lines[1], StartsWith("Unable to load IPA at " + place_.temporary().string()));
  EXPECT_EQ(lines[2], "Failed to upload binary");
  EXPECT_THAT(result.errors, HasSubstr("Cannot allocate memory"));
  expectCleanedUp();
}

TEST_F(MachineFaultTest, FilesMayOnlyBecomeSoLarge) {
  inflationFailed_ = true;
  for (const rlim_t limit : {rlim_t{0}, rlim_t{100}, rlim_t{1000}, rlim_t{5000}, rlim_t{20000}}) {
    SCOPED_TRACE(limit);
    const auto prepare = [limit] {
      const struct rlimit small { limit, limit };
      ::setrlimit(RLIMIT_FSIZE, &small);
      // The console is no file here.
      ::dup2(::open("/dev/null", O_WRONLY), 1);
      ::dup2(1, 2);
    };
    for (const RunResult& result : {run(prepare), runArchive(prepare)}) {
      EXPECT_EQ(result.status, 1) << "signal " << result.signal;
    }
    expectCleanedUp();
  }
  EXPECT_EQ(service_.server().connectionCount(), 0u);
}

}  // namespace
}  // namespace test

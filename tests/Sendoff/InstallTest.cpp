// The installed programs, and a hand-off with the signing tools that come with them.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

/// The app with a signature of its own, as Xcode hands it over.
void sign(const fs::path& app, const fs::path& codesign, const Workplace& place) {
  const fs::path entitlements = place.files() / "entitlements.plist";
  std::ofstream(entitlements)
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>application-identifier</key><string>ABCDE12345.com.example.app</string>"
         "<key>beta-reports-active</key><true/></dict></plist>\n";
  outputOf({codesign, "--force", "--sign", signingFamily().leaf.sha1(), "--keychain",
            place.home() / "Library/Keychains/identity.pem", "--entitlements", entitlements, app});
}

TEST(InstallTest, TheInstalledToolSignsWithItsOwnTools) {
  Workplace place;
  const fs::path prefix = place.files() / "an optional prefix";
  outputOf({CMAKE_COMMAND, "--install", SENDOFF_BUILD_FOLDER, "--prefix", prefix});
  const fs::path tools = prefix / "libexec/sendoff";
  const fs::path app = makeApp(place.files());
  sign(app, tools / "codesign", place);
  const fs::path ipa = packIPA(app, place.files() / "Example.ipa");

  const StandInService service;
  const auto run = [&] {
    return runProgram({.command = {prefix / "bin/sendoff", kKey, kSecret, "-ipaPath", ipa,
                                   "-QuorvantileAPIEndpoint", service.url()},
                       .environment = place.environment()});
  };
  place.environment()["PATH"] = "/usr/bin:/bin";
  const auto result = run();
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  EXPECT_THAT(service.complaints(), testing::IsEmpty());

  const fs::path received = place.files() / "received.ipa";
  std::ofstream(received, std::ios::binary) << service.form(ServiceCall::upload).back().value;
  const fs::path arrived = unpackIPA(received, place.files() / "received");
  EXPECT_THAT(outputOf({tools / "codesign", "-vv", arrived}), testing::HasSubstr("valid on disk"));
  EXPECT_THAT(outputOf({tools / "codesign", "--display", "--entitlements", ":-", arrived}),
              testing::Not(testing::HasSubstr("beta-reports-active")));
}

TEST(InstallTest, APackagersFlagsAreKept) {
  const TemporaryFolder build;
  outputOf({CMAKE_COMMAND, "-G", "Ninja", "-S", SENDOFF_SOURCE_FOLDER, "-B", build.path(),
            "-DSENDOFF_TESTS=OFF", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
            "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-Og"});
  EXPECT_THAT(contentsOf(build / "compile_commands.json"),
              AllOf(testing::HasSubstr(" -Og "), testing::Not(testing::HasSubstr(" -O1 "))));
}

}  // namespace
}  // namespace test

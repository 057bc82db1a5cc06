// Several runs at once in one temporary folder.
#include <csignal>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::IsEmpty;

/// How often the runs are started; scripts ask for more.
int rounds() {
  const char* const wanted = std::getenv("SENDOFF_TEST_ROUNDS");
  return wanted ? std::stoi(wanted) : 5;
}

/// A build of its own, and the service that is to get it and no other.
struct Build {
  Build(const Workplace& place, int number, const std::string& folderName)
      : identifier("com.example.app" + std::to_string(number)) {
    const fs::path folder = place.files() / std::to_string(number);
    fs::create_directory(folder);
    AppOptions app;
    app.folderName = folderName;
    app.info = {{"CFBundleIdentifier", identifier}};
    app.profile.bundleIdentifier = identifier;
    ipa = packIPA(signedApp(makeApp(folder, app)), folder / "Example.ipa");
  }

  std::string identifier;
  fs::path ipa;
  StandInService service{{.apiKey = kKey, .buildSecret = kSecret}};
};

TEST(ConcurrentRunsTest, EachEndsAsItWouldAlone) {
  const Workplace place;
  // All of one name; two of them hold apps of one name, too.
  std::vector<std::unique_ptr<Build>> builds;
  for (const char* const folder : {"Example.app", "Example.app", "Other.app", "Third.app"}) {
    builds.push_back(std::make_unique<Build>(place, static_cast<int>(builds.size()), folder));
  }
  for (int round = 0; round < rounds(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<std::unique_ptr<RunningProgram>> runs;
    for (const auto& build : builds) {
      runs.push_back(std::make_unique<RunningProgram>(place.options(
          {"-ipaPath", build->ipa, "-QuorvantileAPIEndpoint", build->service.url()})));
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
      SCOPED_TRACE(builds[i]->identifier);
      const RunResult result = runs[i]->wait();
      EXPECT_EQ(result.status, 0);
      EXPECT_THAT(result.messages(),
                  testing::ElementsAre("Quorvantile.framework/sendoff 1.3.6 (19)",
                                       "Uploaded Successfully 202"));
      EXPECT_EQ(result.errors, "");
    }
  }
  for (const auto& build : builds) {
    EXPECT_THAT(build->service.complaints(), IsEmpty());
    EXPECT_EQ(build->service.calls().size(), static_cast<std::size_t>(2 * rounds()));
    const auto request = build->service.server().requests().front();
    EXPECT_THAT(request->target, testing::HasSubstr("/" + build->identifier + "/"));
  }
  EXPECT_THAT(place.leftovers(),
              testing::ElementsAre("Example", "Example/Payload", "com.quorvantile.ipas",
                                   "com.quorvantile.mac", "com.quorvantile.mac/distributions"));
}

}  // namespace
}  // namespace test

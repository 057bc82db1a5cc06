// Names of files and folders that a shell, an archiver or a URL would take for something else.
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

class NamesTest : public testing::Test {
 protected:
  /// The archive's names of what was uploaded last.
  std::vector<std::string> uploadedNames() {
    return factsOf(service_.form(ServiceCall::upload).back().value).names;
  }
  std::vector<std::string> withEndpoint(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"-QuorvantileAPIEndpoint", service_.url()});
    return arguments;
  }

  StandInService service_;
  Workplace place_;
};

const std::vector<std::string> kNames = {"My App",
                                         "100%25 done%@",
                                         "a#b",
                                         "App[1]",
                                         "App*",
                                         "App?",
                                         "back\\slash",
                                         "quote\"s'",
                                         "Gr\u00fc\u00dfe",
                                         "Gru\u0308\u00dfe",
                                         "\u4e2d\u6587\u5e94\u7528",
                                         "~tilde",
                                         "&amp;<b>"};

TEST_F(NamesTest, OfTheIPATheAppItsExecutableAndItsFolders) {
  for (const std::string& name : kNames) {
    SCOPED_TRACE(name);
    AppOptions options;
    options.folderName = name + ".app";
    options.info = {{"CFBundleExecutable", name}};
    const TemporaryFolder folder;
    const fs::path inner = folder / ("in " + name);
    const fs::path app = makeApp(inner, options);
    const auto direct =
        place_.run(withEndpoint({"-ipaPath", packIPA(app, inner / (name + ".ipa"))}));
    EXPECT_EQ(direct.status, 0) << direct.output;
    EXPECT_THAT(uploadedNames(), testing::Contains("Payload/" + name + ".app/Info.plist"));

    place_.environment()["ARCHIVE_PRODUCTS_PATH"] = makeArchive(inner / (name + ".xcarchive"), app);
    const auto archived = place_.run(withEndpoint({}));
    EXPECT_EQ(archived.status, 0) << archived.output;
  }
  EXPECT_THAT(service_.complaints(), IsEmpty());
}

TEST_F(NamesTest, APatternNeverReachesANeighbour) {
  const fs::path right = makeApp(place_.files() / "right");
  AppOptions other;
  other.info = {{"CFBundleVersion", "wrong"}};
  const fs::path wrong = makeApp(place_.files() / "wrong", other);
  for (const auto& [name, neighbour] : {std::pair("App[1]", "App1"), std::pair("App*", "App-old"),
                                        std::pair("App?", "AppX"), std::pair("A\\pp", "App")}) {
    SCOPED_TRACE(name);
    packIPA(wrong, place_.files() / (std::string(neighbour) + ".ipa"));
    const fs::path ipa = packIPA(right, place_.files() / (std::string(name) + ".ipa"));
    const auto result = place_.run(withEndpoint({"-ipaPath", ipa}));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(valuesOf(service_.form(ServiceCall::upload), "app[build_version]"),
                testing::ElementsAre("2.5.117"));
  }
}

TEST_F(NamesTest, AnIPAWithoutExtensionAndOneGivenByRelativePathAsIsTheTemporaryFolder) {
  const fs::path app = makeApp(place_.files());
  const fs::path plain = packIPA(app, place_.files() / "build-117");
  EXPECT_EQ(place_.run(withEndpoint({"-ipaPath", plain})).status, 0);
  packIPA(app, place_.files() / "Relative.ipa");
  place_.environment()["TMPDIR"] = "../temporary";
  const auto relative = place_.run(withEndpoint({"-ipaPath", "Relative.ipa"}),
                                   [folder = place_.files()] { fs::current_path(folder); });
  EXPECT_EQ(relative.status, 0) << relative.output;
  EXPECT_THAT(service_.complaints(), IsEmpty());
}

TEST_F(NamesTest, WhatTheFinderLeavesBesideTheApp) {
  const fs::path ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa",
                               {{"Payload/.DS_Store", "Bud1"},
                                {"Payload/._Example.app", "x"},
                                {"__MACOSX/Payload/._Example.app", "x"},
                                {"Payload/Example.APP/not", "an app"},
                                {"iTunesArtwork", "png"}});
  const auto result = place_.run(withEndpoint({"-ipaPath", ipa}));
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(service_.complaints(), IsEmpty());
}

}  // namespace
}  // namespace test

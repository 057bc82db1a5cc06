#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "preparation/QVTIPA.h"
#include "tests/preparation/Archives.h"

namespace {

using testing::HasSubstr;

const std::string kInfo = test::plist(test::stringPair("CFBundleIdentifier", "com.example.app") +
                                      test::stringPair("CFBundleShortVersionString", "1.2") +
                                      test::stringPair("CFBundleVersion", "34"));

/// Makes the resource, with what was written to the console on the way.
std::shared_ptr<QVTIPA> open(const std::string& path, std::string* console = nullptr) {
  testing::internal::CaptureStdout();
  auto ipa = QVTIPA::initWithPath(path);
  const std::string output = testing::internal::GetCapturedStdout();
  if (console) *console = output;
  return ipa;
}

TEST(IPA, TakesItsIdentityFromTheApp) {
  for (const std::string name :
       {"My App", "App[1] 100% #*?", "\u00dcber", "U\u0308ber", "\u5e94\u7528"}) {
    SCOPED_TRACE(name);
    const test::TemporaryDirectoryScope temporary;
    const test::TemporaryFolder folder;
    const std::string archive = folder / (name + ".ipa");
    test::pack(archive, {{"Payload/" + name + ".app/Info.plist", kInfo},
                         {"Payload/" + name + ".app/" + name, "program"},
                         {"Payload/.DS_Store", "x"},
                         {"__MACOSX/Payload/Other.app/Info.plist", "x"},
                         {"iTunesMetadata.plist", "x"}});
    const auto ipa = open(archive);
    ASSERT_TRUE(ipa);
    const std::string app = temporary.path().string() + "/" + name + "/Payload/" + name + ".app";
    EXPECT_EQ(ipa->path(), app);
    EXPECT_EQ(ipa->bundleIdentifier(), "com.example.app");
    EXPECT_EQ(ipa->displayVersion(), "1.2");
    EXPECT_EQ(ipa->buildVersion(), "34");
    EXPECT_EQ(ipa->provisioningProfilePath(), app + "/embedded.mobileprovision");
    EXPECT_EQ(ipa->creationDate(), std::nullopt);
    ASSERT_TRUE(ipa->bundle());
    EXPECT_EQ(ipa->bundle()->bundlePath(), app);
    EXPECT_EQ(ipa->bundle()->executablePath(), app + "/" + name);
    EXPECT_FALSE(ipa->isEqual(*ipa));  // no creation date
    EXPECT_THAT(ipa->description(), HasSubstr("<QVTIPA: 0x"));
  }
}

TEST(IPA, AnAppWithoutInfoHasTheDefaults) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  test::pack(folder / "App", {{"Payload/App.app/file", "x"}});
  testing::internal::CaptureStderr();
  const auto ipa = open(folder / "App");
  testing::internal::GetCapturedStderr();
  ASSERT_TRUE(ipa);
  EXPECT_EQ(ipa->bundleIdentifier(), "");
  EXPECT_EQ(ipa->displayVersion(), "0.0");
  EXPECT_EQ(ipa->buildVersion(), "0");
}

TEST(IPA, OnlyAFailedInflationHasALine) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  folder.write("text.ipa", "no archive");
  test::pack(folder / "noPayload.ipa", {{"App.app/Info.plist", kInfo}});
  test::pack(folder / "noApp.ipa", {{"Payload/App.APP/Info.plist", kInfo}});
  test::pack(folder / "payloadIsAFile.ipa", {{"Payload", "x"}});
  std::string console;
  EXPECT_FALSE(open(folder / "text.ipa", &console));
  EXPECT_TRUE(std::regex_search(
      console, std::regex("Unable to inflate IPA to temporary path: Error "
                          "Domain=QVTFileSystemUtilsErrorDomain Code=-1 [^\n]*\n$")))
      << console;
  for (const char* const name : {"noPayload.ipa", "noApp.ipa", "payloadIsAFile.ipa"}) {
    EXPECT_FALSE(open(folder / name, &console)) << name;
    EXPECT_EQ(console, "") << name;
  }
}

}  // namespace

#include "preparation/QVTIPA.h"
#include "tests/preparation/TemporaryDirectory.h"

namespace {

TEST(IPA, TakesItsIdentityFromTheApp) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  const std::string name = "App[1] 100% #*? \u00dcber";
  const std::string info = plist({{"CFBundleIdentifier", "com.example.app"},
                                  {"CFBundleShortVersionString", "1.2"},
                                  {"CFBundleVersion", "34"}});
  const auto ipa = QVTIPA::initWithPath(
      pack(folder / (name + ".ipa"), {{"Payload/" + name + ".app/Info.plist", info},
                                      {"Payload/" + name + ".app/" + name, "program"},
                                      {"Payload/.DS_Store", "x"},
                                      {"__MACOSX/Payload/Other.app/Info.plist", "x"}}));
  ASSERT_TRUE(ipa && ipa->bundle());
  const std::string app = temporary / name / "Payload" / (name + ".app");
  EXPECT_EQ(ipa->path(), app);
  EXPECT_EQ(ipa->bundleIdentifier(), "com.example.app");
  EXPECT_EQ(ipa->displayVersion(), "1.2");
  EXPECT_EQ(ipa->buildVersion(), "34");
  EXPECT_EQ(ipa->provisioningProfilePath(), app + "/embedded.mobileprovision");
  EXPECT_EQ(ipa->creationDate(), std::nullopt);
  EXPECT_EQ(ipa->bundle()->executablePath(), app + "/" + name);
  EXPECT_THAT(ipa->description(), StartsWith("<QVTIPA: 0x"));
}

TEST(IPA, AnAppWithoutInfoHasTheDefaults) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  pack(folder / "App", {{"Payload/App.app/file", "x"}});
  std::shared_ptr<QVTIPA> ipa;
  logOf([&] { ipa = QVTIPA::initWithPath(folder / "App"); });
  ASSERT_TRUE(ipa);
  EXPECT_EQ(ipa->bundleIdentifier(), "");
  EXPECT_EQ(ipa->displayVersion(), "0.0");
  EXPECT_EQ(ipa->buildVersion(), "0");
}

}  // namespace

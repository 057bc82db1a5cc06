#include "preparation/QVTIPA.h"
#include "tests/preparation/TemporaryDirectory.h"

namespace {

TEST(IPA, AnAppWithoutInfoHasTheDefaults) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  pack(folder / "App", {{"Payload/App.app/file", "x"}, {"__MACOSX/Payload/Other.app/x", "x"}});
  std::shared_ptr<QVTIPA> ipa;
  logOf([&] { ipa = QVTIPA::initWithPath(folder / "App"); });
  ASSERT_TRUE(ipa && ipa->bundle());
  EXPECT_EQ(ipa->path(), temporary / "App/Payload/App.app");
  EXPECT_EQ(ipa->bundleIdentifier(), "");
  EXPECT_EQ(ipa->displayVersion(), "0.0");
  EXPECT_EQ(ipa->buildVersion(), "0");
  EXPECT_EQ(ipa->creationDate(), std::nullopt);
  EXPECT_THAT(ipa->description(), StartsWith("<QVTIPA: 0x"));
}

}  // namespace

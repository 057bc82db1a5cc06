#include "macho/QVTdSYM.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

class QVTdSYMTest : public testing::Test {
 protected:
  [[nodiscard]] std::shared_ptr<QVTdSYM> open() const {
    return QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(bundle_.string()));
  }
  void writeInfo(const std::string& identifier) const {
    writePlist(bundle_ / "Contents/Info.plist", {{"CFBundleIdentifier", identifier},
                                                 {"CFBundleVersion", "42"},
                                                 {"CFBundleShortVersionString", "4.2"}});
  }

  TemporaryFolder folder_;
  const fs::path bundle_ = folder_ / "App.dSYM";
  const fs::path images_ = bundle_ / "Contents/Resources/DWARF";
};

TEST_F(QVTdSYMTest, HasTheFileOfItsFolder) {
  writeInfo("com.apple.xcode.dsym.Demo");
  writeFile(images_ / "App", MachOImage::arm64().uuid(std::string(32, 'a')).bytes());
  const auto symbols = open();
  ASSERT_TRUE(symbols);
  EXPECT_EQ(symbols->bundleIdentifier(), "Demo");
  EXPECT_EQ(symbols->bundleVersion(), "42");
  EXPECT_EQ(symbols->shortBundleVersion(), "4.2");
  EXPECT_EQ(symbols->executablePath(), (images_ / "App").string());
  EXPECT_EQ(symbols->executableURL()->path(), (images_ / "App").string());
  std::vector<std::string> seen;
  symbols->enumerateUUIDs(
      [&](const auto& uuid, const auto& name) { seen.push_back(name + " " + *uuid); });
  EXPECT_THAT(seen, ElementsAre("arm64 " + std::string(32, 'a')));
}

TEST_F(QVTdSYMTest, NeedsAFolderWithSomethingInIt) {
  EXPECT_FALSE(open());
  writeInfo("Demo");
  EXPECT_FALSE(open());
  writeFile(images_, "not a folder");
  EXPECT_FALSE(open());
  fs::remove(images_);
  fs::create_directory(images_);
  EXPECT_FALSE(open());
}

TEST_F(QVTdSYMTest, AFirstEntryThatIsNotAFileLeavesItWithoutBinary) {
  writeInfo("com.apple.xcode.dsym");
  writeFile(images_ / "sub/App", "not reached: its folder comes first");
  const auto symbols = open();
  ASSERT_TRUE(symbols);
  EXPECT_FALSE(symbols->binary());
  EXPECT_EQ(symbols->executablePath(), std::nullopt);
  EXPECT_EQ(symbols->executableURL(), std::nullopt);
  symbols->enumerateUUIDs([](const auto&, const auto&) { FAIL(); });
  EXPECT_EQ(symbols->bundleIdentifier(), "com.apple.xcode.dsym");
}

}  // namespace

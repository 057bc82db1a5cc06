#include "macho/QVTdSYM.h"
#include "tests/support/Test.h"

namespace {

/// Bundles that hold nothing to read; the rows of sendoff-inspect have real ones.
class QVTdSYMTest : public testing::Test {
 protected:
  [[nodiscard]] std::shared_ptr<QVTdSYM> open() const {
    return QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(bundle_.string()));
  }
  void writeInfo(const std::string& identifier) const {
    writePlist(bundle_ / "Contents/Info.plist", {{"CFBundleIdentifier", identifier}});
  }

  const TemporaryFolder folder_;
  const fs::path bundle_ = folder_ / "App.dSYM";
  const fs::path images_ = bundle_ / "Contents/Resources/DWARF";
};

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
  writeFile(images_ / "sub/App", "not reached: its folder comes first");
  for (const auto& [stored, shown] : {std::pair{"com.apple.xcode.dsym.Demo", "Demo"},
                                      std::pair{"com.apple.xcode.dsym", "com.apple.xcode.dsym"}}) {
    writeInfo(stored);
    const auto symbols = open();
    ASSERT_TRUE(symbols);
    EXPECT_FALSE(symbols->binary());
    EXPECT_EQ(symbols->executablePath(), std::nullopt);
    EXPECT_EQ(symbols->executableURL(), std::nullopt);
    symbols->enumerateUUIDs([](const auto&, const auto&) { FAIL(); });
    EXPECT_EQ(symbols->bundleIdentifier(), shown);
    EXPECT_EQ(symbols->bundleVersion(), std::nullopt);
  }
}

}  // namespace

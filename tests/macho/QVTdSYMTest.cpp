#include "macho/QVTdSYM.h"
#include "tests/support/Test.h"

namespace {

/// The rows of sendoff-inspect have real ones.
TEST(QVTdSYMTest, ABundleWithoutSymbolsIsNoneOrHasNoBinary) {
  const TemporaryFolder folder;
  const fs::path bundle = folder / "App.dSYM";
  const fs::path images = bundle / "Contents/Resources/DWARF";
  const auto open = [&] {
    return QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(bundle.string()));
  };
  const auto identify = [&](const char* identifier) {
    writePlist(bundle / "Contents/Info.plist", {{"CFBundleIdentifier", identifier}});
  };
  EXPECT_FALSE(open());
  identify("com.apple.xcode.dsym.Demo");
  EXPECT_FALSE(open());
  fs::create_directories(images);
  EXPECT_FALSE(open()) << "nothing in the folder";
  writeFile(images / "sub/App", "not reached: its folder comes first");
  const auto symbols = open();
  ASSERT_TRUE(symbols);
  EXPECT_FALSE(symbols->binary());
  EXPECT_EQ(symbols->executablePath(), std::nullopt);
  EXPECT_EQ(symbols->executableURL(), std::nullopt);
  symbols->enumerateUUIDs([](const auto&, const auto&) { FAIL(); });
  EXPECT_EQ(symbols->bundleIdentifier(), "Demo");
  EXPECT_EQ(symbols->bundleVersion(), std::nullopt);
  identify("com.apple.xcode.dsym");
  EXPECT_EQ(open()->bundleIdentifier(), "com.apple.xcode.dsym");
}

}  // namespace

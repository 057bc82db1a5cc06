#include "macho/QVTdSYM.h"
#include "tests/support/Test.h"

namespace {

/// The rows of sendoff-inspect have those with symbols.
TEST(QVTdSYMTest, AFolderInPlaceOfSymbolsLeavesItWithoutBinary) {
  const TemporaryFolder folder;
  folder.write("App.dSYM/Contents/Resources/DWARF/sub/App", "not reached: its folder comes first");
  writePlist(folder / "App.dSYM/Contents/Info.plist",
             {{"CFBundleIdentifier", "com.apple.xcode.dsym"}});
  const auto url = foundation::URL::fileURLWithPath((folder / "App.dSYM").string());
  const auto symbols = QVTdSYM::dSYMWithURL(url);
  ASSERT_TRUE(symbols);
  EXPECT_FALSE(symbols->binary());
  EXPECT_EQ(symbols->executablePath(), std::nullopt);
  EXPECT_EQ(symbols->executableURL(), std::nullopt);
  symbols->enumerateUUIDs([](const auto&, const auto&) { FAIL(); });
  EXPECT_EQ(symbols->bundleIdentifier(), "com.apple.xcode.dsym");
  EXPECT_EQ(symbols->bundleVersion(), std::nullopt);
}

}  // namespace

#include <gtest/gtest.h>

#include "macho/QVTdSYM.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr char kFolder[] = "App.dSYM/Contents/Resources/DWARF";

std::shared_ptr<QVTdSYM> open(const fs::path& path) {
  return QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(path.string()));
}

std::string infoPlist(const std::string& identifier) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
         "<key>CFBundleIdentifier</key><string>" +
         identifier + "</string><key>CFBundleVersion</key><string>42</string></dict></plist>";
}

TEST(QVTdSYMTest, ReadsABundleThatDsymutilMade) {
  const test::TemporaryFolder folder;
  const fs::path arm64 = folder / "arm64";
  const fs::path armv7 = folder / "armv7";
  test::linkImage(arm64, {.compilerArguments = {"-g"}});
  test::linkImage(armv7, {.architecture = "armv7", .compilerArguments = {"-g"}});
  test::lipo(folder / "App", {arm64, armv7});
  test::makeDSYM(folder / "App", folder / "App.dSYM");

  const auto symbols = open(folder / "App.dSYM");
  ASSERT_TRUE(symbols);
  EXPECT_EQ(symbols->bundleIdentifier(), "App");
  EXPECT_EQ(symbols->bundleVersion(), "1");
  EXPECT_EQ(symbols->shortBundleVersion(), "1.0");
  EXPECT_EQ(symbols->executablePath(), (folder / kFolder / "App").string());
  std::string listed;
  const auto app = QVTMachOBinary::MachOBinaryWithPath((folder / "App").string());
  symbols->enumerateUUIDs([&](const auto& uuid, const auto& name) {
    listed += name + " ";
    EXPECT_EQ(app->sliceForArchitecture(name)->uuid(), uuid);
  });
  EXPECT_EQ(listed.size(), std::string("arm64 armv7 ").size());
}

TEST(QVTdSYMTest, NeedsAFolderWithSomethingInIt) {
  const test::TemporaryFolder folder;
  EXPECT_FALSE(open(folder / "App.dSYM"));
  folder.write("App.dSYM/Contents/Info.plist", infoPlist("Demo"));
  EXPECT_FALSE(open(folder / "App.dSYM"));
  folder.write("App.dSYM/Contents/Resources/DWARF", "no folder");
  EXPECT_FALSE(open(folder / "App.dSYM"));
  fs::remove(folder / kFolder);
  fs::create_directory(folder / kFolder);
  EXPECT_FALSE(open(folder / "App.dSYM"));
}

TEST(QVTdSYMTest, AFirstEntryThatIsNoFileLeavesItWithoutBinary) {
  const test::TemporaryFolder folder;
  for (const auto& [stored, shown] : {std::pair{"com.apple.xcode.dsym.Demo", "Demo"},
                                      std::pair{"com.apple.xcode.dsym", "com.apple.xcode.dsym"}}) {
    folder.write("App.dSYM/Contents/Info.plist", infoPlist(stored));
    folder.write(fs::path(kFolder) / "sub" / "App", "not reached: its folder comes first");
    const auto symbols = open(folder / "App.dSYM");
    ASSERT_TRUE(symbols);
    EXPECT_FALSE(symbols->binary());
    EXPECT_EQ(symbols->executablePath(), std::nullopt);
    EXPECT_EQ(symbols->executableURL(), std::nullopt);
    symbols->enumerateUUIDs([](const auto&, const auto&) { FAIL(); });
    EXPECT_EQ(symbols->bundleIdentifier(), shown);
    EXPECT_EQ(symbols->bundleVersion(), "42");
    EXPECT_EQ(symbols->shortBundleVersion(), std::nullopt);
  }
}

}  // namespace

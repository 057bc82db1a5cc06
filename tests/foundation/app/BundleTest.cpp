#include "foundation/app/Bundle.h"
#include "tests/support/Test.h"

namespace {

using foundation::Bundle;

TEST(Bundle, ReadsItsInfoOnceFromEitherPlace) {
  const TemporaryFolder folder;
  const std::string app = folder / "App.app";
  const auto writeInfo = [&](const char* place, const Value& identifier) {
    writePlist(fs::path(app) / place / "Info.plist", {{"CFBundleIdentifier", identifier}});
  };
  EXPECT_FALSE(Bundle::bundleWithPath(app));
  EXPECT_FALSE(Bundle::bundleWithPath(folder.write("file", "x").string()));
  writeInfo("Contents", "deep");
  EXPECT_EQ(Bundle::bundleWithPath(app)->bundleIdentifier(), "deep");
  writeInfo("", "flat");
  const auto flat = Bundle::bundleWithPath(app + "/");
  writeInfo("", 4);
  EXPECT_EQ(flat->bundlePath(), app);
  EXPECT_EQ(flat->bundleIdentifier(), "flat");
  EXPECT_EQ(Bundle::bundleWithPath(app)->bundleIdentifier(), std::nullopt);
}

}  // namespace

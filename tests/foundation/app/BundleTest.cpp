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

TEST(Bundle, FindsItsExecutable) {
  const struct {
    const char* name;
    std::optional<std::string> executable;  // in the Info.plist
    const char* file;
    const char* expected;  // below the bundle; null for none
  } cases[] = {
      {"named", "tool", "tool", "tool"},
      {"named, not there", "tool", "other", nullptr},
      {"named like a folder", "sub", "sub/file", nullptr},
      {"named after the folder", std::nullopt, "My App", "My App"},
      {"empty name", "", "My App", nullptr},
      {"climbs out", "../My App.app/tool", "tool", nullptr},
      {"deep layout", "tool", "Contents/MacOS/tool", "Contents/MacOS/tool"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TemporaryFolder folder;
    const std::string app = folder / "My App.app";
    if (c.executable) writePlist(app + "/Info.plist", {{"CFBundleExecutable", *c.executable}});
    folder.write(app + "/" + c.file, "x");
    const auto expected = c.expected ? std::optional(app + "/" + c.expected) : std::nullopt;
    EXPECT_EQ(Bundle::bundleWithPath(app)->executablePath(), expected);
  }
}

}  // namespace

#include "foundation/app/Bundle.h"
#include "tests/support/Test.h"

namespace {

using foundation::Bundle;

TEST(Bundle, AnyFolderOpensAndNothingElse) {
  const TemporaryFolder folder;
  folder.write("file", "x");
  const auto bundle = Bundle::bundleWithPath(folder.path().string() + "/");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->bundlePath(), folder.path());
  EXPECT_TRUE(bundle->infoDictionary().empty());
  EXPECT_EQ(bundle->bundleIdentifier(), std::nullopt);
  for (const std::string& path : {(folder / "file").string(), (folder / "no").string(), {}}) {
    EXPECT_FALSE(Bundle::bundleWithPath(path)) << path;
  }
}

TEST(Bundle, ReadsItsInfoOnceFromEitherPlace) {
  const TemporaryFolder folder;
  const std::string app = folder / "App.app";
  const auto writeInfo = [&](const char* place, const Value& identifier) {
    writePlist(fs::path(app) / place / "Info.plist", {{"CFBundleIdentifier", identifier}});
  };
  const auto open = [&] { return Bundle::bundleWithPath(app); };
  writeInfo("Contents", "deep");
  EXPECT_EQ(open()->bundleIdentifier(), "deep");
  writeInfo("", "flat");
  const auto flat = open();
  writeInfo("", 4);
  EXPECT_EQ(flat->bundleIdentifier(), "flat");
  EXPECT_EQ(open()->bundleIdentifier(), std::nullopt);
  EXPECT_EQ(*open()->objectForInfoDictionaryKey("CFBundleIdentifier"), Value(4));
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
      {"absolute stays inside", "/bin/ls", "tool", nullptr},
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

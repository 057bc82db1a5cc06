#include <gtest/gtest.h>

#include "foundation/app/Bundle.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Bundle;

std::string plist(const std::string& pairs) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + pairs +
         "</dict></plist>\n";
}

TEST(Bundle, AnyFolderOpensAndNothingElse) {
  const test::TemporaryFolder folder;
  folder.write("file", "x");
  const auto bundle = Bundle::bundleWithPath(folder.path().string() + "/");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->bundlePath(), folder.path());
  EXPECT_TRUE(bundle->infoDictionary().empty());
  EXPECT_EQ(bundle->bundleIdentifier(), std::nullopt);
  EXPECT_FALSE(Bundle::bundleWithPath((folder / "file").string()));
  EXPECT_FALSE(Bundle::bundleWithPath((folder / "missing").string()));
  EXPECT_FALSE(Bundle::bundleWithPath(""));
}

TEST(Bundle, ReadsItsInfoOnceFromEitherPlace) {
  const test::TemporaryFolder folder;
  const auto identifier = [](const std::string& value) {
    return plist("<key>CFBundleIdentifier</key>" + value);
  };
  const auto open = [&](const char* name) {
    return Bundle::bundleWithPath((folder / name).string());
  };
  folder.write("App.app/Contents/Info.plist", identifier("<string>deep</string>"));
  EXPECT_EQ(open("App.app")->bundleIdentifier(), "deep");
  folder.write("App.app/Info.plist", identifier("<string>flat</string>"));
  const auto flat = open("App.app");
  folder.write("App.app/Info.plist", identifier("<integer>4</integer>"));
  EXPECT_EQ(flat->bundleIdentifier(), "flat");
  EXPECT_EQ(open("App.app")->bundleIdentifier(), std::nullopt);
  EXPECT_EQ(*open("App.app")->objectForInfoDictionaryKey("CFBundleIdentifier"),
            foundation::Value(4));
}

TEST(Bundle, FindsItsExecutable) {
  const struct {
    const char* name;
    const char* executable;  // in the Info.plist; null for none
    const char* file;
    const char* expected;  // below the bundle; null for none
  } cases[] = {
      {"named", "tool", "tool", "tool"},
      {"named, not there", "tool", "other", nullptr},
      {"named like a folder", "sub", "sub/file", nullptr},
      {"named after the folder", nullptr, "My App", "My App"},
      {"empty name", "", "My App", nullptr},
      {"climbs out", "../My App.app/tool", "tool", nullptr},
      {"absolute stays inside", "/bin/ls", "tool", nullptr},
      {"deep layout", "tool", "Contents/MacOS/tool", "Contents/MacOS/tool"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const test::TemporaryFolder folder;
    const std::string app = folder / "My App.app";
    const std::string key = "<key>CFBundleExecutable</key>";
    if (c.executable) {
      folder.write(app + "/Info.plist", plist(key + "<string>" + c.executable + "</string>"));
    }
    folder.write(app + "/" + c.file, "x");
    const auto bundle = Bundle::bundleWithPath(app);
    ASSERT_TRUE(bundle);
    const auto expected = c.expected ? std::optional(app + "/" + c.expected) : std::nullopt;
    EXPECT_EQ(bundle->executablePath(), expected);
  }
}

}  // namespace

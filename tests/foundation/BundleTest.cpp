#include <gtest/gtest.h>

#include "foundation/Bundle.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Bundle;

std::string plist(const std::string& pairs) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + pairs +
         "</dict></plist>\n";
}

std::string executableKey(const std::string& name) {
  return "<key>CFBundleExecutable</key><string>" + name + "</string>";
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
  const auto identifier = [](const std::string& text) {
    return plist("<key>CFBundleIdentifier</key><string>" + text + "</string>");
  };
  folder.write("Deep.app/Contents/Info.plist", identifier("deep"));
  folder.write("Flat.app/Info.plist", identifier("flat"));
  folder.write("Flat.app/Contents/Info.plist", identifier("deep"));
  folder.write("Number.app/Info.plist", plist("<key>CFBundleIdentifier</key><integer>4</integer>"));
  EXPECT_EQ(Bundle::bundleWithPath((folder / "Deep.app").string())->bundleIdentifier(), "deep");
  const auto flat = Bundle::bundleWithPath((folder / "Flat.app").string());
  folder.write("Flat.app/Info.plist", identifier("changed"));
  EXPECT_EQ(flat->bundleIdentifier(), "flat");
  const auto number = Bundle::bundleWithPath((folder / "Number.app").string());
  EXPECT_EQ(number->bundleIdentifier(), std::nullopt);
  EXPECT_EQ(*number->objectForInfoDictionaryKey("CFBundleIdentifier"), foundation::Value(4));
}

TEST(Bundle, FindsItsExecutable) {
  const struct {
    const char* name;
    std::string info;
    const char* file;
    const char* expected;  // below the bundle; null for none
  } cases[] = {
      {"named", plist(executableKey("tool")), "tool", "tool"},
      {"named, not there", plist(executableKey("tool")), "other", nullptr},
      {"named like a folder", plist(executableKey("sub")), "sub/file", nullptr},
      {"named after the folder", plist(""), "My App", "My App"},
      {"no Info.plist", "", "My App", "My App"},
      {"empty name", plist(executableKey("")), "My App", nullptr},
      {"climbs out", plist(executableKey("../My App.app/tool")), "tool", nullptr},
      {"absolute stays inside", plist(executableKey("/bin/ls")), "tool", nullptr},
      {"deep layout", plist(executableKey("tool")), "Contents/MacOS/tool", "Contents/MacOS/tool"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const test::TemporaryFolder folder;
    if (!c.info.empty()) folder.write("My App.app/Info.plist", c.info);
    folder.write(std::string("My App.app/") + c.file, "x");
    const auto bundle = Bundle::bundleWithPath((folder / "My App.app").string());
    ASSERT_TRUE(bundle);
    if (c.expected) {
      EXPECT_EQ(bundle->executablePath(), (folder / "My App.app" / c.expected).string());
      EXPECT_EQ(bundle->executableURL()->path(), (folder / "My App.app" / c.expected).string());
    } else {
      EXPECT_EQ(bundle->executablePath(), std::nullopt);
      EXPECT_EQ(bundle->executableURL(), std::nullopt);
    }
  }
}

}  // namespace

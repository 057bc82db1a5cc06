#include "preparation/QVTInfoPlist.h"
#include "tests/support/Test.h"

namespace {

TEST(InfoPlist, AnswersWithDefaultsAndALine) {
  const std::string identifierIs = "Bundle indentifier is of type ";
  const std::string versionIs = "Build version is of type ";
  const std::string displayIs = "Display version is of type ";
  using Given = std::optional<Value>;
  const std::tuple<std::string, Given, std::string, std::string> cases[] = {
      {"CFBundleIdentifier", "a.b", "a.b", ""},
      {"CFBundleIdentifier", "", "", ""},
      {"CFBundleIdentifier", std::nullopt, "", identifierIs + "(null), returning empty string."},
      {"CFBundleIdentifier", Array{}, "", identifierIs + "__NSArrayM, returning empty string."},
      {"CFBundleVersion", " ", " ", ""},
      {"CFBundleVersion", 42, "0", versionIs + "__NSCFNumber, returning default version."},
      {"CFBundleVersion", true, "0", versionIs + "__NSCFBoolean, returning default version."},
      {"CFBundleVersion", std::nullopt, "0", versionIs + "(null), returning default version."},
      {"CFBundleVersion", "", "0", "Build version string is empty, returning default version."},
      {"CFBundleShortVersionString", " ", " ", ""},
      {"CFBundleShortVersionString", "", "0.0",
       "Display version string is empty, returning default version."},
      {"CFBundleShortVersionString", 1.5, "0.0",
       displayIs + "__NSCFNumber, returning default version."},
  };
  for (const auto& [key, value, expected, line] : cases) {
    Dictionary dictionary;
    if (value) dictionary.emplace(key, *value);
    const auto info = QVTInfoPlist::initWithDictionary(dictionary);
    std::string answer;
    const auto log = logOf([&, key = key] {
      answer = key == "CFBundleIdentifier" ? info->bundleIdentifier()
               : key == "CFBundleVersion"  ? info->buildVersion()
                                           : info->displayVersion();
    });
    EXPECT_EQ(answer, expected) << key;
    EXPECT_EQ(log.empty(), line.empty()) << key;
    EXPECT_THAT(log, EndsWith(line.empty() ? "" : "] " + line + "\n")) << key;
  }
}

TEST(InfoPlist, FindsTheFileOfAppsAndFrameworks) {
  const TemporaryFolder folder;
  for (const char* const path :
       {"App.app/Info.plist", "Deep.framework/Resources/Info.plist", "Deep.framework/Info.plist",
        "Flat.framework/Info.plist", "Bad.framework/Info.plist"}) {
    writePlist(folder / path, {{"CFBundleVersion", path}});
  }
  folder.write("Bad.framework/Resources/Info.plist", "no property list");
  folder.write("None.framework/file", "x");
  const auto framework = [&](const char* name) {
    return QVTInfoPlist::initWithFrameworkDirectory((folder / name).string());
  };
  EXPECT_EQ(QVTInfoPlist::initWithAppDirectory((folder / "App.app").string())->buildVersion(),
            "App.app/Info.plist");
  EXPECT_EQ(framework("Deep.framework")->buildVersion(), "Deep.framework/Resources/Info.plist");
  EXPECT_EQ(framework("Flat.framework")->buildVersion(), "Flat.framework/Info.plist");
  EXPECT_TRUE(framework("Bad.framework")->info().empty());
  EXPECT_FALSE(framework("None.framework"));
  EXPECT_TRUE(QVTInfoPlist::initWithContentsOfFile((folder / "missing").string())->info().empty());
}

}  // namespace

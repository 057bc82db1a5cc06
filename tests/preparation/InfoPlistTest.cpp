#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "preparation/QVTInfoPlist.h"
#include "tests/preparation/Archives.h"

namespace {

using foundation::Dictionary;
using foundation::Value;

template <class Work>
std::string logOf(const Work& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

TEST(InfoPlist, AnswersWithDefaultsAndALine) {
  const struct {
    const char* key;
    std::optional<Value> value;
    const char* answer;
    const char* line;  // empty for none
  } cases[] = {
      {"CFBundleIdentifier", Value("a.b"), "a.b", ""},
      {"CFBundleIdentifier", Value(""), "", ""},
      {"CFBundleIdentifier", std::nullopt, "",
       "Bundle indentifier is of type (null), returning empty string.\n"},
      {"CFBundleIdentifier", Value(foundation::Array{}), "",
       "Bundle indentifier is of type __NSArrayM, returning empty string.\n"},
      {"CFBundleVersion", Value("7"), "7", ""},
      {"CFBundleVersion", Value(" "), " ", ""},
      {"CFBundleVersion", Value(42), "0",
       "Build version is of type __NSCFNumber, returning default version.\n"},
      {"CFBundleVersion", Value(true), "0",
       "Build version is of type __NSCFBoolean, returning default version.\n"},
      {"CFBundleVersion", std::nullopt, "0",
       "Build version is of type (null), returning default version.\n"},
      {"CFBundleVersion", Value(""), "0",
       "Build version string is empty, returning default version.\n"},
      {"CFBundleShortVersionString", Value(" "), " ", ""},
      {"CFBundleShortVersionString", Value(""), "0.0",
       "Display version string is empty, returning default version.\n"},
      {"CFBundleShortVersionString", Value(1.5), "0.0",
       "Display version is of type __NSCFNumber, returning default version.\n"},
  };
  for (const auto& c : cases) {
    Dictionary dictionary;
    if (c.value) dictionary.emplace(c.key, *c.value);
    const auto info = QVTInfoPlist::initWithDictionary(dictionary);
    const std::string_view key = c.key;
    std::string answer;
    const std::string log = logOf([&] {
      answer = key == "CFBundleIdentifier" ? info->bundleIdentifier()
               : key == "CFBundleVersion"  ? info->buildVersion()
                                           : info->displayVersion();
    });
    EXPECT_EQ(answer, c.answer) << key;
    if (std::string_view(c.line).empty()) {
      EXPECT_EQ(log, "") << key;
    } else {
      EXPECT_TRUE(log.ends_with(std::string("] ") + c.line)) << log;
    }
  }
}

TEST(InfoPlist, FindsTheFileOfAppsAndFrameworks) {
  const test::TemporaryFolder folder;
  const auto version = [](const char* text) {
    return test::plist(test::stringPair("CFBundleVersion", text));
  };
  folder.write("App.app/Info.plist", version("app"));
  folder.write("Deep.framework/Resources/Info.plist", version("resources"));
  folder.write("Deep.framework/Info.plist", version("top"));
  folder.write("Flat.framework/Info.plist", version("flat"));
  folder.write("Bad.framework/Resources/Info.plist", "no property list");
  folder.write("Bad.framework/Info.plist", version("top"));
  folder.write("None.framework/file", "x");
  EXPECT_EQ(QVTInfoPlist::initWithAppDirectory((folder / "App.app").string())->buildVersion(),
            "app");
  const auto framework = [&](const char* name) {
    return QVTInfoPlist::initWithFrameworkDirectory((folder / name).string());
  };
  EXPECT_EQ(framework("Deep.framework")->buildVersion(), "resources");
  EXPECT_EQ(framework("Flat.framework")->buildVersion(), "flat");
  EXPECT_TRUE(framework("Bad.framework")->info().empty());
  EXPECT_FALSE(framework("None.framework"));
  EXPECT_TRUE(QVTInfoPlist::initWithContentsOfFile((folder / "missing").string())->info().empty());
}

}  // namespace

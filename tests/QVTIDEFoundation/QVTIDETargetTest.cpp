#include <gtest/gtest.h>

#include "QVTIDEFoundation/QVTIDETarget.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;
using Type = QVTIDETargetAppType;

std::shared_ptr<QVTIDETarget> make(const Dictionary& objects, std::string_view root = "P") {
  return QVTIDETarget::initWithTargetIdObjectsDictionaryFilesDictionaryRootObjectKeyProjectPath(
      "T", objects, {}, root, "/p/App.xcodeproj/project.pbxproj");
}

TEST(QVTIDETarget, LogsTheStepThatFailed) {
  const Dictionary list{{"buildConfigurations", Array{"C"}}};
  const auto objectsWith = [&list](Value configuration) {
    return Dictionary{{"L", list}, {"C", std::move(configuration)}};
  };
  struct Case {
    Dictionary target;
    Dictionary objects;
    const char* step;
  };
  const Dictionary refers{{"buildConfigurationList", "L"}};
  for (const Case& c : {
           Case{{}, {}, "QVTBuildConfigurationList"},
           Case{{{"buildConfigurationList", 1}}, {}, "QVTBuildConfigurationList String Check"},
           Case{refers, {}, "QVTBuildConfigurationList Keys Check"},
           Case{refers, {{"L", "x"}}, "BuildConfigurationList Dictionary Check"},
           Case{refers, {{"L", Dictionary{}}}, "BuildConfigurationList Key Check"},
           Case{refers,
                {{"L", Dictionary{{"buildConfigurations", "C"}}}},
                "BuildConfigurations Array Check"},
           Case{refers,
                {{"L", Dictionary{{"buildConfigurations", Array{}}}}},
                "BuildConfigurations Array Count Check"},
           Case{refers,
                {{"L", Dictionary{{"buildConfigurations", Array{1}}}}},
                "FirstBuildConfigurations String Check"},
           Case{refers, {{"L", list}}, "FirstBuildConfigurations Key Check"},
           Case{refers, objectsWith("x"), "DictionaryOfFirstBuildConfigurations Dictionary Check"},
           Case{refers, objectsWith(Dictionary{}), "QVTBuildSettings Check"},
           Case{refers, objectsWith(Dictionary{{"buildSettings", "x"}}),
                "QVTBuildSettings Dictionary Check"},
       }) {
    SCOPED_TRACE(c.step);
    Dictionary objects = c.objects;
    Dictionary target = c.target;
    target.emplace("name", "App");
    objects.emplace("T", target);
    testing::internal::CaptureStderr();
    const auto made = make(objects);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(log.ends_with(" XCode Project Target Parsing failed: " + std::string(c.step) +
                              " for Target:App\n"))
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_EQ(made->targetAppType(), Type::unknown);
  }
}

TEST(QVTIDETarget, TakesTheSDKOfItsOwnSettingsBeforeTheProjects) {
  const auto owner = [](const char* list) { return Dictionary{{"buildConfigurationList", list}}; };
  const auto list = [](const char* first) {
    return Dictionary{{"buildConfigurations", Array{first, "MAC"}}};
  };
  const auto settings = [](Dictionary values) {
    return Dictionary{{"buildSettings", std::move(values)}};
  };
  const auto typeOf = [&](const char* own, const char* project) {
    return make({{"T", owner("TL")},
                 {"P", owner("PL")},
                 {"TL", list(own)},
                 {"PL", list(project)},
                 {"MAC", settings({{"SDKROOT", "macosx"}})},
                 {"IOS", settings({{"SDKROOT", "iphoneos"}})},
                 {"ODD", settings({{"SDKROOT", Array{}}})},
                 {"NONE", settings({})}})
        ->targetAppType();
  };
  EXPECT_EQ(typeOf("IOS", "MAC"), Type::iphone);
  EXPECT_EQ(typeOf("MAC", "IOS"), Type::mac);
  EXPECT_EQ(typeOf("NONE", "IOS"), Type::iphone);
  EXPECT_EQ(typeOf("ODD", "IOS"), Type::unknown);
  EXPECT_EQ(typeOf("NONE", "NONE"), Type::unknown);
}

TEST(QVTIDEBuildPhase, TellsSettingsBundlesByName) {
  struct Case {
    Dictionary file;
    bool isBundle;
  };
  for (const Case& c : {
           Case{{{"name", "SeTTings.BUNDLE"}}, true},
           Case{{{"path", "a/Settings.bundle"}}, true},
           Case{{{"name", "Other"}, {"path", "a/Settings.bundle"}}, false},
           Case{{{"path", "Settings.bundle/Root.plist"}}, false},
           Case{{}, false},
       }) {
    const auto file = QVTIDEFile::initWithObjectDictionaryObjectId(&c.file, "F");
    EXPECT_EQ(QVTIDEBuildPhase::isSettingsBundleFileInProjectFolder(*file, "/p"), c.isBundle);
  }
}

TEST(QVTIDEBuildPhase, FindsTheProjectFolder) {
  EXPECT_EQ(QVTIDEBuildPhase::projectFolderForProjectPath("/p/App.xcodeproj/project.pbxproj"),
            "/p");
  EXPECT_EQ(QVTIDEBuildPhase::projectFolderForProjectPath("/p/App/project.pbxproj"), "/p/App");
}

}  // namespace

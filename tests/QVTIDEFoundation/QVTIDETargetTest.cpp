#include "QVTIDEFoundation/QVTIDETarget.h"
#include "tests/support/Test.h"

namespace {

using Type = QVTIDETargetAppType;

std::shared_ptr<QVTIDETarget> make(const Dictionary& objects) {
  return QVTIDETarget::initWithTargetIdObjectsDictionaryFilesDictionaryRootObjectKeyProjectPath(
      "T", objects, {}, "P", "/p/App.xcodeproj/project.pbxproj");
}

Dictionary configurations(Value value) { return {{"buildConfigurations", std::move(value)}}; }
Dictionary settings(Value value) { return {{"buildSettings", std::move(value)}}; }

TEST(QVTIDETarget, LogsTheStepThatFailed) {
  const Dictionary list = configurations(Array{"C"});
  const std::pair<std::string, Dictionary> cases[] = {
      {"QVTBuildConfigurationList", {{"T", Dictionary{{"name", "App"}}}}},
      {"QVTBuildConfigurationList String Check",
       {{"T", Dictionary{{"name", "App"}, {"buildConfigurationList", 1}}}}},
      {"QVTBuildConfigurationList Keys Check", {}},
      {"BuildConfigurationList Dictionary Check", {{"L", "x"}}},
      {"BuildConfigurationList Key Check", {{"L", Dictionary{}}}},
      {"BuildConfigurations Array Check", {{"L", configurations("C")}}},
      {"BuildConfigurations Array Count Check", {{"L", configurations(Array{})}}},
      {"FirstBuildConfigurations String Check", {{"L", configurations(Array{1})}}},
      {"FirstBuildConfigurations Key Check", {{"L", list}}},
      {"DictionaryOfFirstBuildConfigurations Dictionary Check", {{"L", list}, {"C", "x"}}},
      {"QVTBuildSettings Check", {{"L", list}, {"C", Dictionary{}}}},
      {"QVTBuildSettings Dictionary Check", {{"L", list}, {"C", settings("x")}}},
  };
  for (auto [step, objects] : cases) {
    objects.emplace("T", Dictionary{{"name", "App"}, {"buildConfigurationList", "L"}});
    const auto log =
        logOf([&all = objects] { EXPECT_EQ(make(all)->targetAppType(), Type::unknown); });
    EXPECT_THAT(log,
                EndsWith(" XCode Project Target Parsing failed: " + step + " for Target:App\n"));
    EXPECT_EQ(std::ranges::count(log, '\n'), 1) << log;
  }
}

TEST(QVTIDETarget, TakesTheSDKOfItsOwnSettingsBeforeTheProjects) {
  const auto typeOf = [](const char* own, const char* project) {
    return make({{"T", Dictionary{{"buildConfigurationList", "TL"}}},
                 {"P", Dictionary{{"buildConfigurationList", "PL"}}},
                 {"TL", configurations(Array{own, "MAC"})},
                 {"PL", configurations(Array{project, "MAC"})},
                 {"MAC", settings(Dictionary{{"SDKROOT", "macosx"}})},
                 {"IOS", settings(Dictionary{{"SDKROOT", "iphoneos"}})},
                 {"ODD", settings(Dictionary{{"SDKROOT", Array{}}})},
                 {"NONE", settings(Dictionary{})}})
        ->targetAppType();
  };
  EXPECT_EQ(typeOf("IOS", "MAC"), Type::iphone);
  EXPECT_EQ(typeOf("MAC", "IOS"), Type::mac);
  EXPECT_EQ(typeOf("NONE", "IOS"), Type::iphone);
  EXPECT_EQ(typeOf("ODD", "IOS"), Type::unknown);
  EXPECT_EQ(typeOf("NONE", "NONE"), Type::unknown);
}

TEST(QVTIDEBuildPhase, FindsSettingsBundlesAndTheProjectFolder) {
  const std::pair<Dictionary, bool> cases[] = {
      {{{"name", "Other"}, {"path", "a/Settings.bundle"}}, false},
      {{{"path", "a/Settings.bundle"}}, true},
      {{}, false}};
  for (const auto& [dictionary, isBundle] : cases) {
    const auto file = QVTIDEFile::initWithObjectDictionaryObjectId(&dictionary, "F");
    EXPECT_EQ(QVTIDEBuildPhase::isSettingsBundleFileInProjectFolder(*file, "/p"), isBundle);
  }
  const auto folderOf = QVTIDEBuildPhase::projectFolderForProjectPath;
  EXPECT_EQ(folderOf("/p/App.xcodeproj/project.pbxproj"), "/p");
  EXPECT_EQ(folderOf("/p/App/project.pbxproj"), "/p/App");
}

}  // namespace

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

TEST(QVTIDEBuildPhase, TheProjectsFolderIsAroundThePackage) {
  const auto folderOf = QVTIDEBuildPhase::projectFolderForProjectPath;
  EXPECT_EQ(folderOf("/p/App.xcodeproj/project.pbxproj"), "/p");
  EXPECT_EQ(folderOf("/p/App/project.pbxproj"), "/p/App");
}

}  // namespace

#include "QVTIDEFoundation/QVTIDEProject.h"
#include "tests/support/Test.h"

namespace {

constexpr std::string_view kProject = R"(// !$*UTF8*$!
{
  objects = {
    P = { isa = PBXProject; buildConfigurationList = PL; mainGroup = G;
          targets = (T1, T2, GONE, (x)); };
    G = { isa = PBXGroup; children = (F1, SUB, GONE); sourceTree = "<group>"; };
    SUB = { isa = PBXGroup; children = (F2, F3); path = Sub; sourceTree = "<group>"; };
    F1 = { isa = PBXFileReference; lastKnownFileType = sourcecode.c.objc; path = main.m; };
    F2 = { isa = PBXFileReference; name = "SETTINGS.Bundle"; path = "x/Settings.bundle"; };
    F3 = { isa = PBXFileReference; path = "other/settings.bundle"; sourceTree = SDKROOT; };
    T1 = { isa = PBXNativeTarget; name = App; productName = AppProduct; productType = app;
           buildPhases = (SRC, SH, RES); buildConfigurationList = TL; };
    T2 = { isa = PBXAggregateTarget; buildPhases = (); buildConfigurationList = EL; };
    SRC = { isa = PBXSourcesBuildPhase; buildActionMask = 2147483647; files = (B1, GONE, (x)); };
    SH = { InputPaths = (a); inputPaths = (b); outputPaths = (c); shellPath = sh; shellScript = x; };
    RES = { isa = PBXResourcesBuildPhase; files = (B3, B2, BN); };
    B1 = { isa = PBXBuildFile; fileRef = F1; };
    B2 = { isa = PBXBuildFile; fileRef = F2; };
    B3 = { isa = PBXBuildFile; fileRef = F3; };
    BN = { isa = PBXBuildFile; };
    TL = { isa = XCConfigurationList; buildConfigurations = (C1, C2); };
    PL = { isa = XCConfigurationList; buildConfigurations = (C2); };
    EL = { isa = XCConfigurationList; buildConfigurations = (); };
    C1 = { isa = XCBuildConfiguration; buildSettings = { SDKROOT = iphoneos; }; };
    C2 = { isa = XCBuildConfiguration; buildSettings = { SDKROOT = macosx; }; };
  };
  rootObject = P;
}
)";

class ProjectTest : public testing::Test {
 protected:
  std::shared_ptr<QVTIDEProject> read(std::string_view text) {
    return QVTIDEProject::initWithProjectPath(
        folder_.write("App.xcodeproj/project.pbxproj", keepForFuzzing("Project", text)));
  }
  TemporaryFolder folder_;
};

TEST_F(ProjectTest, ReadsTargetsAndTheirPhases) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  EXPECT_THAT(project->description(), EndsWith(folder_ / "App.xcodeproj/project.pbxproj"));
  EXPECT_EQ(foundation::stringAt(*project->objectForObjectId("F1"), "path"), "main.m");
  EXPECT_THAT(project->filesDictionary().at("F1")->description(), EndsWith(" (null)"));
  ASSERT_EQ(project->targets().size(), 3U);
  const QVTIDETarget& app = *project->targets()[0];
  EXPECT_THAT(app.description(), EndsWith(" App"));
  EXPECT_EQ(app.productName(), "AppProduct");
  EXPECT_EQ(app.targetAppType(), QVTIDETargetAppType::iphone);
  ASSERT_THAT(app.buildPhases(), Optional(SizeIs(3)));
  const QVTIDEBuildPhase& script = *app.buildPhases()->at(1);
  EXPECT_EQ(script.type(), QVTIDEObjectType::other);
  EXPECT_EQ(script.inputPaths(), Array{"a"});
  EXPECT_EQ(script.outputPaths(), Array{"c"});
  EXPECT_EQ(script.shellPath(), "sh");
  EXPECT_EQ(script.shellScript(), "x");
  const auto resources = app.firstBuildPhaseWithType(QVTIDEObjectType::resourcesBuildPhase);
  ASSERT_TRUE(resources);
  EXPECT_EQ(resources->files().size(), 2U);
  EXPECT_EQ(resources->settingsBundle()->objectId(), "F3");
  EXPECT_EQ(app.settingBundle(), resources->settingsBundle());
  const auto& sources = *app.buildPhases()->at(0);
  EXPECT_EQ(sources.buildActionMask(), "2147483647");
  ASSERT_EQ(sources.files().size(), 1U) << "dangling and wrong references are skipped";
  EXPECT_EQ(sources.files()[0]->lastKnownFileType(), "sourcecode.c.objc");
  EXPECT_FALSE(app.firstBuildPhaseWithType(QVTIDEObjectType::frameworksBuildPhase));

  EXPECT_FALSE(project->targets()[1]->buildPhases());
  EXPECT_FALSE(project->targets()[1]->firstBuildPhaseWithType(QVTIDEObjectType::other));
  EXPECT_EQ(project->targets()[1]->targetAppType(), QVTIDETargetAppType::mac) << "the project's";
  EXPECT_EQ(project->targets()[2]->type(), QVTIDEObjectType::other) << "a dangling reference";
}

TEST_F(ProjectTest, ResolvesPathsThroughTheirTrees) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  const auto pathOf = [&](const QVTIDESourceTreeObject& object) {
    const Dictionary environment{{"SOURCE_ROOT", "/src"}, {"SDKROOT", 5}};
    return object.absolutePathWithBuildEnvironmentForProject(&environment, *project);
  };
  EXPECT_EQ(pathOf(*project->filesDictionary().at("F3")), std::nullopt) << "not a text";
  const Dictionary absolute{{"sourceTree", "<absolute>"}, {"path", "/a"}};
  EXPECT_EQ(pathOf(*QVTIDEFile::initWithObjectDictionaryObjectId(&absolute, "X")), "/a");
  const Dictionary pathless{{"sourceTree", "SOURCE_ROOT"}};
  EXPECT_EQ(pathOf(*QVTIDEFile::initWithObjectDictionaryObjectId(&pathless, "X")), "/src");
  EXPECT_DEATH(pathOf(*project->mainGroup()),
               "Assertion failed: \\(self.parentGroupObjectId != nil\\), file "
               "QVTIDEFoundation/QVTIDEFoundation/QVTIDESourceTreeObject");
}

TEST_F(ProjectTest, DamageGivesNoProjectOrLess) {
  for (const char* const text : {"{ a = \"\xff\"; }", "(a)", "", "{ a = b; <<<<<<< HEAD\n }"}) {
    EXPECT_FALSE(read(text)) << text;
  }
  const std::tuple<const char*, bool, std::size_t> cases[] = {
      {" \n", false, 0},
      {"{rootObject = (P); objects = {P = {};};}", false, 0},
      {"{rootObject = P; objects = (P);}", false, 0},
      {"{rootObject = P; objects = {P = text;};}", false, 0},
      {"{rootObject = P; objects = {P = {mainGroup = GONE; targets = T;};};}", false, 0},
      {"{rootObject = P; objects = {P = {mainGroup = G; targets = (P);}; G = x;};}", true, 1},
      {"{rootObject = P; objects = {P = {mainGroup = G;}; G = {children = x;};};}", true, 0},
      {"{rootObject = P; objects = {P = {mainGroup = P; targets = (T); children = (P, (x));};"
       " T = {buildPhases = (T, {}); files = (T); fileRef = T; name = (n);};};}",
       true, 1},
  };
  for (const auto& [text, hasMainGroup, targets] : cases) {
    SCOPED_TRACE(text);
    const auto project = read(text);
    ASSERT_TRUE(project);
    EXPECT_EQ(static_cast<bool>(project->mainGroup()), hasMainGroup);
    EXPECT_EQ(project->targets().size(), targets);
    EXPECT_TRUE(project->filesDictionary().empty());
  }
}

TEST_F(ProjectTest, RepeatedReferencesTakeLinearTime) {
  constexpr std::size_t kCount = 3000;
  const auto list = [](const char* id) {
    return "(" + repeated(std::string(id) + ",", kCount) + ")";
  };
  const auto project =
      read("{rootObject = P; objects = {P = {mainGroup = G; targets = " + list("T") +
           ";}; G = {children = (F);}; F = {isa = PBXFileReference;};"
           " B = {fileRef = F;}; T = {buildPhases = " +
           list("S") + ";}; S = {files = " + list("B") + ";};};}");
  ASSERT_TRUE(project);
  ASSERT_EQ(project->targets().size(), kCount);
  EXPECT_EQ(project->targets().back()->buildPhases()->back()->files().size(), kCount);
}

}  // namespace

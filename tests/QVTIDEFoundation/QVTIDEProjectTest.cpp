#include <gtest/gtest.h>

#include "QVTIDEFoundation/QVTIDEConstants.h"
#include "QVTIDEFoundation/QVTIDEProject.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Dictionary;

constexpr std::string_view kProject = R"(// !$*UTF8*$!
{
  archiveVersion = 1;
  objects = {
    P = { isa = PBXProject; buildConfigurationList = PL; mainGroup = G; targets = (T1, T2, GONE, (x)); };
    G = { isa = PBXGroup; children = (F1, SUB, V, GONE, F4); sourceTree = "<group>"; };
    SUB = { isa = PBXGroup; children = (F2, F3); path = Sub; sourceTree = "<group>"; };
    V = { isa = PBXVariantGroup; children = (F5); name = Localizable.strings; sourceTree = "<group>"; };
    F1 = { isa = PBXFileReference; lastKnownFileType = sourcecode.c.objc; path = main.m; sourceTree = "<group>"; };
    F2 = { isa = PBXFileReference; name = "SETTINGS.Bundle"; path = "x/Settings.bundle"; sourceTree = "<group>"; };
    F3 = { isa = PBXFileReference; path = "other/settings.bundle"; sourceTree = SDKROOT; };
    F4 = { isa = PBXFileReference; explicitFileType = wrapper.application; path = App.app; sourceTree = BUILT_PRODUCTS_DIR; };
    F5 = { isa = PBXFileReference; path = en.lproj; sourceTree = "<group>"; };
    T1 = { isa = PBXNativeTarget; name = App; productName = AppProduct; productType = "com.apple.product-type.application";
           buildPhases = (SRC, SH, RES, NOPHASE); buildConfigurationList = TL; };
    T2 = { isa = PBXAggregateTarget; name = All; buildPhases = (); buildConfigurationList = EL; };
    SRC = { isa = PBXSourcesBuildPhase; buildActionMask = 2147483647; files = (B1, GONE); };
    SH = { isa = PBXShellScriptBuildPhase; InputPaths = (a); inputPaths = (b); outputPaths = (c); shellPath = /bin/sh; shellScript = "exit 0\n"; };
    RES = { isa = PBXResourcesBuildPhase; files = (B3, B2, BV, BN); };
    B1 = { isa = PBXBuildFile; fileRef = F1; };
    B2 = { isa = PBXBuildFile; fileRef = F2; };
    B3 = { isa = PBXBuildFile; fileRef = F3; };
    BV = { isa = PBXBuildFile; fileRef = V; };
    BN = { isa = PBXBuildFile; };
    TL = { isa = XCConfigurationList; buildConfigurations = (C1, C2); };
    PL = { isa = XCConfigurationList; buildConfigurations = (C2); };
    EL = { isa = XCConfigurationList; buildConfigurations = (); };
    C1 = { isa = XCBuildConfiguration; name = Debug; buildSettings = { SDKROOT = iphoneos; }; };
    C2 = { isa = XCBuildConfiguration; name = Release; buildSettings = { SDKROOT = macosx; }; };
  };
  rootObject = P;
}
)";

class ProjectTest : public testing::Test {
 protected:
  std::shared_ptr<QVTIDEProject> read(std::string_view text) {
    return QVTIDEProject::initWithProjectPath(
        folder_.write("App.xcodeproj/project.pbxproj", text).string());
  }
  static std::optional<std::string> pathOf(const QVTIDEProject& project, std::string_view id) {
    static const Dictionary environment{
        {"SOURCE_ROOT", "/src"}, {"SDKROOT", 5}, {"BUILT_PRODUCTS_DIR", "/out/"}};
    return project.filesDictionary().find(id)->second->absolutePathWithBuildEnvironmentForProject(
        &environment, project);
  }
  test::TemporaryFolder folder_;
};

TEST_F(ProjectTest, ReadsGroupsFilesAndTargets) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  EXPECT_EQ(project->type(), QVTIDEObjectType::project);
  EXPECT_EQ(project->objectId(), "P");
  EXPECT_EQ(project->projectFile(), folder_ / "App.xcodeproj/project.pbxproj");
  ASSERT_TRUE(project->mainGroup());
  std::vector<std::string> ids;
  for (const auto& [id, object] : project->filesDictionary()) ids.push_back(id);
  EXPECT_EQ(ids, (std::vector<std::string>{"F1", "F2", "F3", "F4", "SUB"}));
  EXPECT_EQ(project->filesDictionary().at("F3")->parentGroupObjectId(), "SUB");
  std::string tree;
  project->mainGroup()->enumerateTree([&tree](const QVTIDESourceTreeObject& object, int depth) {
    tree += std::to_string(depth) + object.objectId() + " ";
  });
  EXPECT_EQ(tree, "0F1 0SUB 1F2 1F3 0F4 ");
  ASSERT_EQ(project->targets().size(), 3U);
  EXPECT_TRUE(project->description().ends_with(project->projectFile()));
  EXPECT_TRUE(project->targets()[0]->description().ends_with(" App"));
  EXPECT_TRUE(project->filesDictionary().at("F1")->description().ends_with(" (null)"));
  EXPECT_EQ(project->objectForObjectId("rootObject"), nullptr);
  ASSERT_TRUE(project->objectForObjectId("F1"));
  EXPECT_EQ(foundation::stringAt(*project->objectForObjectId("F1"), QVTIDEPathKey), "main.m");
}

TEST_F(ProjectTest, ReadsTargets) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  const QVTIDETarget& app = *project->targets()[0];
  EXPECT_EQ(app.name(), "App");
  EXPECT_EQ(app.productName(), "AppProduct");
  EXPECT_EQ(app.productType(), "com.apple.product-type.application");
  EXPECT_EQ(app.targetAppType(), QVTIDETargetAppType::iphone);
  ASSERT_TRUE(app.buildPhases());
  ASSERT_EQ(app.buildPhases()->size(), 4U);
  const QVTIDEBuildPhase& script = *app.buildPhases()->at(1);
  EXPECT_EQ(script.type(), QVTIDEObjectType::other);
  EXPECT_EQ(script.inputPaths(), foundation::Array{"a"});
  EXPECT_EQ(script.outputPaths(), foundation::Array{"c"});
  EXPECT_EQ(script.shellPath(), "/bin/sh");
  EXPECT_EQ(script.shellScript(), "exit 0\n");
  const auto resources = app.firstBuildPhaseWithType(QVTIDEObjectType::resourcesBuildPhase);
  ASSERT_TRUE(resources);
  ASSERT_EQ(resources->files().size(), 2U);
  EXPECT_EQ(resources->settingsBundle()->objectId(), "F3");
  EXPECT_EQ(app.settingBundle(), resources->settingsBundle());
  EXPECT_EQ(app.firstBuildPhaseWithType(QVTIDEObjectType::frameworksBuildPhase), nullptr);
  const auto sources = app.firstBuildPhaseWithType(QVTIDEObjectType::sourcesBuildPhase);
  EXPECT_EQ(sources->buildActionMask(), "2147483647");
  ASSERT_EQ(sources->files().size(), 1U);
  EXPECT_EQ(sources->files()[0]->lastKnownFileType(), "sourcecode.c.objc");

  const QVTIDETarget& all = *project->targets()[1];
  EXPECT_FALSE(all.buildPhases());
  EXPECT_EQ(all.targetAppType(), QVTIDETargetAppType::mac) << "the project's own settings";
  const QVTIDETarget& missing = *project->targets()[2];
  EXPECT_EQ(missing.type(), QVTIDEObjectType::other);
  EXPECT_EQ(missing.name(), std::nullopt);
}

TEST_F(ProjectTest, ResolvesPathsThroughTheirTrees) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  EXPECT_EQ(pathOf(*project, "F1"), "/src/main.m") << "directly in the main group";
  EXPECT_EQ(pathOf(*project, "SUB"), "/src/Sub");
  EXPECT_EQ(pathOf(*project, "F2"), std::nullopt) << "relative to a group further down";
  EXPECT_EQ(pathOf(*project, "F3"), std::nullopt) << "the tree's value is no text";
  EXPECT_EQ(pathOf(*project, "F4"), "/out/App.app");
  const auto& file = *project->filesDictionary().at("F1");
  EXPECT_EQ(file.absolutePathWithBuildEnvironmentForProject(nullptr, *project), std::nullopt);
  const Dictionary absolute{{"sourceTree", "<absolute>"}, {"path", "/a"}};
  EXPECT_EQ(QVTIDEFile::initWithObjectDictionaryObjectId(&absolute, "X")
                ->absolutePathWithBuildEnvironmentForProject(nullptr, *project),
            "/a");
  const Dictionary pathless{{"sourceTree", "ROOT"}};
  const Dictionary environment{{"ROOT", "/r"}};
  EXPECT_EQ(QVTIDESourceTreeObject::initWithObjectDictionaryObjectId(&pathless, "X")
                ->absolutePathWithBuildEnvironmentForProject(&environment, *project),
            "/r");
}

TEST_F(ProjectTest, ParentlessGroupRelativeObjectIsAProgrammingFault) {
  const auto project = read(kProject);
  ASSERT_TRUE(project);
  EXPECT_DEATH(
      (void)project->mainGroup()->absolutePathWithBuildEnvironmentForProject(nullptr, *project),
      "Assertion failed: \\(self.parentGroupObjectId != nil\\), file "
      "QVTIDEFoundation/QVTIDEFoundation/QVTIDESourceTreeObject");
}

TEST_F(ProjectTest, UnreadableFilesGiveNoProject) {
  std::string conflict(kProject);
  conflict.insert(conflict.find("  rootObject"), "<<<<<<< HEAD\n=======\n>>>>>>> theirs\n");
  EXPECT_FALSE(read(conflict));
  EXPECT_FALSE(read("{ a = \"\xff\"; }"));
  EXPECT_FALSE(read("(a)"));
  EXPECT_FALSE(read(""));
  EXPECT_FALSE(read(kProject.substr(0, kProject.size() / 2)));
  EXPECT_FALSE(QVTIDEProject::initWithProjectPath((folder_ / "none").string()));
  EXPECT_FALSE(QVTIDEProject::initWithProjectPath(folder_.path().string()));
}

TEST_F(ProjectTest, WrongTypesAndDanglingIdentifiersAreSkipped) {
  struct Case {
    const char* text;
    bool hasMainGroup;
    std::size_t targets;
  };
  for (const Case& c : {
           Case{" \n", false, 0},
           Case{"{rootObject = P;}", false, 0},
           Case{"{rootObject = (P); objects = {P = {};};}", false, 0},
           Case{"{rootObject = P; objects = (P);}", false, 0},
           Case{"{rootObject = P; objects = {P = text;};}", false, 0},
           Case{"{rootObject = P; objects = {P = {mainGroup = GONE; targets = T;};};}", false, 0},
           Case{"{rootObject = P; objects = {P = {mainGroup = G; targets = (P);}; G = x;};}", true,
                1},
           Case{"{rootObject = P; objects = {P = {mainGroup = G;}; G = {children = x;};};}", true,
                0},
           Case{"{rootObject = P; objects = {P = {mainGroup = P; targets = (T); children = (P, "
                "(x));};"
                "T = {buildPhases = (T, {}); files = (T); fileRef = T; name = (n);};};}",
                true, 1},
       }) {
    SCOPED_TRACE(c.text);
    const auto project = read(c.text);
    ASSERT_TRUE(project);
    EXPECT_EQ(static_cast<bool>(project->mainGroup()), c.hasMainGroup);
    EXPECT_EQ(project->targets().size(), c.targets);
    EXPECT_TRUE(project->filesDictionary().empty());
  }
}

TEST_F(ProjectTest, RepeatedReferencesTakeLinearTime) {
  constexpr int kRepeats = 3000;
  std::string list;
  const auto repeated = [](const char* id) {
    std::string text = "(";
    for (int i = 0; i < kRepeats; ++i) text += std::string(id) + ",";
    return text + ")";
  };
  const auto project =
      read("{rootObject = P; objects = {P = {mainGroup = G; targets = " + repeated("T") +
           ";}; G = {children = (F);}; F = {isa = "
           "PBXFileReference;}; B = {fileRef = F;}; T = {buildPhases = " +
           repeated("S") + ";}; S = {files = " + repeated("B") + ";};};}");
  ASSERT_TRUE(project);
  ASSERT_EQ(project->targets().size(), kRepeats);
  EXPECT_EQ(project->targets().back()->buildPhases()->back()->files().size(), kRepeats);
}

TEST(QVTIDEObject, OnlySomeKindsAreMadeFromABareDictionary) {
  const Dictionary empty;
  EXPECT_EQ(QVTIDEObject::init(), nullptr);
  EXPECT_EQ(QVTIDEProject::initWithObjectDictionaryObjectId(&empty, "X"), nullptr);
  EXPECT_EQ(QVTIDEGroup::initWithObjectDictionaryObjectId(&empty, "X"), nullptr);
  EXPECT_EQ(QVTIDETarget::initWithObjectDictionaryObjectId(&empty, "X"), nullptr);
  EXPECT_EQ(QVTIDEBuildPhase::initWithObjectDictionaryObjectId(&empty, "X"), nullptr);
  const Dictionary phase{{"isa", "PBXFrameworksBuildPhase"}};
  const auto object = QVTIDEObject::initWithObjectDictionaryObjectId(&phase, "X");
  EXPECT_EQ(static_cast<int>(object->type()), 11);
  EXPECT_EQ(object->objectId(), "X");
}

}  // namespace

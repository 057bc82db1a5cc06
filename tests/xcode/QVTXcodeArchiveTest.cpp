#include "tests/xcode/ArchiveFixture.h"
#include "xcode/QVTXcodeArchive.h"

namespace {

class QVTXcodeArchiveTest : public testing::Test {
 protected:
  std::shared_ptr<QVTXcodeArchive> open(const std::string& name) {
    return QVTXcodeArchive::initWithURL(
        foundation::URL::fileURLWithPath((home_.folder() / name).string()));
  }

  const ArchivesHome home_;
};

Dictionary pathInfo(const Value& path) {
  return {{"Name", "MyApp"}, {"ApplicationProperties", Dictionary{{"ApplicationPath", path}}}};
}

TEST_F(QVTXcodeArchiveTest, FindsTheAppAsTheArchiveNamesIt) {
  const auto created = dayOf2015("03-01");
  home_.writeInfo("A/Products/Applications/MyApp.app/Info.plist",
                  {{"CFBundleIdentifier", "com.example.my"}, {"CFBundleVersion", 42}});
  home_.writeInfo("A/Products/Other/\xc3\x9c [1].app/Info.plist", {});
  home_.folder().write("B/here", "x");
  const struct {
    const char* name;
    Dictionary info;
    const char* app;  ///< null: not an archive
  } cases[] = {
      {"by name", {{"Name", "MyApp"}, {"CreationDate", created}}, "Applications/MyApp.app"},
      {"empty properties",
       {{"Name", "MyApp"}, {"ApplicationProperties", Dictionary{}}},
       "Applications/MyApp.app"},
      {"by path", pathInfo("Other/\xc3\x9c [1].app"), "Other/\xc3\x9c [1].app"},
      {"a path wins over a name", pathInfo("Applications/Missing.app"), nullptr},
      {"properties without a path",
       {{"Name", "MyApp"}, {"ApplicationProperties", Dictionary{{"SigningIdentity", "x"}}}},
       nullptr},
      {"path of the wrong type", pathInfo(7), nullptr},
      {"path that climbs out", pathInfo("Applications/../../../B"), nullptr},
      {"path that climbs and comes back", pathInfo("./../Products/Other/\xc3\x9c [1].app"),
       nullptr},
      {"neither", {{"CreationDate", created}}, nullptr},
      {"empty", {}, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    home_.writeInfo("A/Info.plist", c.info);
    const auto archive = open("A");
    ASSERT_EQ(archive != nullptr, c.app != nullptr);
    if (!archive) continue;
    const auto path = (home_.folder() / "A/Products" / c.app).string();
    EXPECT_EQ(archive->path(), path);
    EXPECT_EQ(archive->bundle()->bundlePath(), path);
    EXPECT_EQ(archive->provisioningProfilePath(), path + "/embedded.mobileprovision");
    EXPECT_EQ(archive->creationDate(), foundation::dateAt(c.info, "CreationDate"));
    const bool isMyApp = c.app == std::string("Applications/MyApp.app");
    EXPECT_EQ(archive->bundleIdentifier(), isMyApp ? "com.example.my" : "");
    EXPECT_EQ(archive->buildVersion(), "0");
    EXPECT_THAT(archive->description(), StartsWith("<QVTXcodeArchive: 0x"));
  }
}

TEST_F(QVTXcodeArchiveTest, NothingElseIsAnArchive) {
  EXPECT_FALSE(QVTXcodeArchive::initWithURL(std::nullopt));
  EXPECT_FALSE(open("missing"));
  home_.folder().write("text/Info.plist", "no property list {");
  EXPECT_FALSE(open("text"));
}

TEST_F(QVTXcodeArchiveTest, KeepsArchivesWhereXcodeSays) {
  EXPECT_EQ(QVTXcodeArchive::currentArchiveLocation(), home_.location().string());
  home_.writeInfo("Library/Preferences/com.apple.dt.Xcode.plist",
                  {{"IDECustomDistributionArchivesLocation", "~/Elsewhere"}});
  EXPECT_EQ(QVTXcodeArchive::currentArchiveLocation(), "~/Elsewhere");
}

}  // namespace

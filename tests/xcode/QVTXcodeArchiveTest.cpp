#include "tests/xcode/ArchiveFixture.h"
#include "xcode/QVTXcodeArchive.h"

namespace {

class QVTXcodeArchiveTest : public testing::Test {
 protected:
  std::shared_ptr<QVTXcodeArchive> open(const std::string& name) {
    return QVTXcodeArchive::initWithURL(
        foundation::URL::fileURLWithPath((home_.folder() / name).string()));
  }

  const ArchivesHome home_{};
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
  // Without an app, the folder is not an archive.
  const std::tuple<const char*, Dictionary, std::string> cases[] = {
      {"by name", {{"Name", "MyApp"}, {"CreationDate", created}}, "Applications/MyApp.app"},
      {"empty properties",
       {{"Name", "MyApp"}, {"ApplicationProperties", Dictionary{}}},
       "Applications/MyApp.app"},
      {"by path", pathInfo("Other/\xc3\x9c [1].app"), "Other/\xc3\x9c [1].app"},
      {"a path wins over a name", pathInfo("Applications/Missing.app"), ""},
      {"properties without a path",
       {{"Name", "MyApp"}, {"ApplicationProperties", Dictionary{{"SigningIdentity", "x"}}}},
       ""},
      {"path of the wrong type", pathInfo(7), ""},
      {"path that climbs out", pathInfo("Applications/../../../B"), ""},
      {"path that climbs and comes back", pathInfo("./../Products/Other/\xc3\x9c [1].app"), ""},
      {"neither", {{"CreationDate", created}}, ""},
      {"empty", Dictionary(), ""},
  };
  for (const auto& [name, info, app] : cases) {
    SCOPED_TRACE(name);
    home_.writeInfo("A/Info.plist", info);
    const auto archive = open("A");
    ASSERT_EQ(archive == nullptr, app.empty());
    if (!archive) continue;
    const auto path = (home_.folder() / "A/Products" / app).string();
    EXPECT_EQ(archive->path(), path);
    EXPECT_EQ(archive->bundle()->bundlePath(), path);
    EXPECT_EQ(archive->provisioningProfilePath(), path + "/embedded.mobileprovision");
    EXPECT_EQ(archive->creationDate(), foundation::dateAt(info, "CreationDate"));
    EXPECT_EQ(archive->bundleIdentifier(), app.ends_with("/MyApp.app") ? "com.example.my" : "");
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

// Archives that try to make a run read, write or remove what is not its own. Beside each lies a
// folder of somebody else's, which is to be the same afterwards and of which nothing is sent.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "foundation/format/PropertyList.h"
#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::StartsWith;

/// In every file of the canary folder that could be taken for a part of an app.
constexpr std::string_view kMark = "CANARY-CONTENT";

const std::string kNotPreparedLine = "Failed to prepare the binary for release";
const std::string kInflation = "Unable to inflate IPA to temporary path: ";
const std::string kArchive = "Unable to read archive at ";
const std::string kCopy = "Unable to move application to temp path due to error: ";
const std::string kProfile = "Unable to read provisioning profile at ";
const std::string kPackaging =
    "Unable to package source due to error: Error Domain=QVTIPABuilderErrorDomain Code=";
const std::string kNoExecutable = "Unable to read Mach-O binary.";

void put(const fs::path& path, std::string_view content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

void replaceWithLink(const fs::path& path, const fs::path& target) {
  fs::remove_all(path);
  fs::create_symlink(target, path);
}

/// A pipe, or the device from which reading never ends; false where this user may not make one.
bool replaceWith(mode_t kind, const fs::path& path) {
  fs::remove(path);
  return ::mknod(path.c_str(), kind | 0666, makedev(1, 5)) == 0;
}

void changePlist(const fs::path& path, const foundation::Dictionary& changes) {
  auto dictionary = foundation::PropertyList::dictionaryWithContentsOfFile(path);
  for (const auto& [key, value] : changes) (*dictionary)[key] = value;
  put(path, *foundation::PropertyList::xml(*dictionary));
}

/// A whole app, secrets and an empty folder: what runs must leave alone.
class Canary {
 public:
  Canary() {
    AppOptions options{.folderName = "Canary.app"};
    options.info = {{"CFBundleIdentifier", std::string(kMark)},
                    {"CFBundleExecutable", "Example"},
                    {"QuorvantileSignedForDistribution", true}};
    options.profile.name = kMark;
    makeApp(folder_.path(), options);
    put(app() / "_CodeSignature/CodeResources", kMark);
    put(app() / "_CodeSignature/other", kMark);
    put(path() / "secret.txt", kMark);
    fs::create_directory(path() / "empty");
    before_ = content();
  }
  [[nodiscard]] const fs::path& path() const { return folder_.path(); }
  [[nodiscard]] fs::path app() const { return folder_ / "Canary.app"; }
  void expectUntouched() const { EXPECT_EQ(content(), before_); }

 private:
  [[nodiscard]] std::map<std::string, std::string> content() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(path())) {
      found[entry.path()] = entry.is_regular_file() && !entry.is_symlink()
                                ? contentsOf(entry.path())
                                : std::string("(no file)");
    }
    return found;
  }

  TemporaryFolder folder_;
  std::map<std::string, std::string> before_;
};

/// One run with a place, a service and a canary of its own.
class HostileRun {
 public:
  RunResult withIPA(const fs::path& ipa) {
    return place.run({"-ipaPath", ipa, "-QuorvantileAPIEndpoint", service.url()});
  }
  /// What `sendoff-inspect` says of the same; nothing of it is from elsewhere.
  RunResult inspected(const fs::path& source) {
    const auto result =
        runProgram({.command = {fs::path(kTool).parent_path() / "sendoff-inspect", "app", source},
                    .environment = place.environment()});
    EXPECT_THAT(result.output, testing::Not(HasSubstr(kMark)));
    return result;
  }
  RunResult withArchive(const fs::path& products) {
    place.environment()["ARCHIVE_PRODUCTS_PATH"] = products;
    return place.run({"-QuorvantileAPIEndpoint", service.url()});
  }
  /// Packs what is in the folder, links as links.
  [[nodiscard]] fs::path packed(const fs::path& folder) const {
    outputOf({"sh", "-c", R"(cd "$1" && zip -q --symlinks -r "$2" .)", "sh", folder.string(),
              (place.files() / "Example.ipa").string()});
    return place.files() / "Example.ipa";
  }
  void expectNothingOfOthers() const {
    canary.expectUntouched();
    for (const auto& request : service.server().requests()) {
      EXPECT_THAT(request->raw, testing::Not(HasSubstr(kMark)));
      const auto zip = request->raw.find("PK\x03\x04");
      if (zip == std::string::npos) continue;
      put(place.files() / "uploaded.zip", request->raw.substr(zip));
      const std::string file = place.files() / "uploaded.zip";
      EXPECT_THAT(runCommand({"unzip", "-p", file}).output, testing::Not(HasSubstr(kMark)));
    }
  }
  /// Status 1, and after the banner these lines, each as it begins.
  void expectFailure(const RunResult& result, const std::vector<std::string>& lines) const {
    EXPECT_EQ(result.status, 1) << result.output << result.errors;
    const auto said = result.messages();
    ASSERT_GT(said.size(), lines.size()) << result.output;
    for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_THAT(said[i + 1], StartsWith(lines[i]));
    expectNothingOfOthers();
  }

  Canary canary;
  StandInService service;
  Workplace place;
};

/// An app, and what is wrong with it.
struct HostileApp {
  const char* name;
  std::function<void(const fs::path& app, const fs::path& outside)> damage;
  /// The lines of the .ipa and of the archive route, each as it begins.
  std::vector<std::string> lines;
  std::vector<std::string> archiveLines;
  /// How the path that the system log speaks of ends; nothing where the lines say it.
  std::string refused = "";
};

void linkInto(const fs::path& app, const fs::path& outside, const char* name) {
  replaceWithLink(app / name, outside / "Canary.app" / name);
}

const std::vector<HostileApp>& hostileApps() {
  const std::vector<std::string> upload = {kNoExecutable, "Unable to load IPA at (null)"};
  static const std::vector<HostileApp> apps = {
      {"the app is a link",
       [](const fs::path& app, const fs::path& outside) {
         replaceWithLink(app, outside / "Canary.app");
       },
       {kNotPreparedLine},
       {"Uploading ", kArchive},
       "Example.app"},
      {"Info.plist is a link",
       [](const fs::path& app, const fs::path& outside) { linkInto(app, outside, "Info.plist"); },
       {kPackaging},
       {"Uploading ", kPackaging},
       "Example.app/Info.plist"},
      {"Contents is a link, and there is no Info.plist",
       [](const fs::path& app, const fs::path& outside) {
         fs::remove(app / "Info.plist");
         replaceWithLink(app / "Contents", outside / "Canary.app");
       },
       {kPackaging},
       {"Uploading ", kPackaging},
       "Example.app/Contents/Info.plist"},
      {"the profile is a link",
       [](const fs::path& app, const fs::path& outside) {
         linkInto(app, outside, "embedded.mobileprovision");
       },
       {kProfile},
       {"Uploading ", kProfile},
       "Example.app/embedded.mobileprovision"},
      {"the executable is a link",
       [](const fs::path& app, const fs::path& outside) { linkInto(app, outside, "Example"); },
       upload,
       {"Uploading ", kNoExecutable},
       "Example.app/Example"},
      {"the executable is named above the app",
       [](const fs::path& app, const fs::path& outside) {
         fs::copy_file(app / "Example", app.parent_path() / "Example");
         changePlist(app / "Info.plist",
                     {{"CFBundleExecutable",
                       "../../../../../../.." + outside.string() + "/Canary.app/Example"}});
       },
       upload,
       {"Uploading ", kNoExecutable},
       "/Canary.app/Example"},
      {"the executable is named by an absolute path",
       [](const fs::path& app, const fs::path& outside) {
         changePlist(app / "Info.plist",
                     {{"CFBundleExecutable", (outside / "Canary.app/Example").string()}});
       },
       upload,
       {"Uploading ", kNoExecutable}},
      {"the signature's folder is a link",
       [](const fs::path& app, const fs::path& outside) {
         replaceWithLink(app / "_CodeSignature", outside / "Canary.app/_CodeSignature");
       },
       {kPackaging + "-6"},
       {"Uploading ", kPackaging + "-6"}},
  };
  return apps;
}

testing::Matcher<std::string> refuses(const std::string& path) {
  if (path.empty()) return testing::_;
  return testing::AnyOf(HasSubstr(path + " leads out of "), HasSubstr(path + " is a link, which"));
}

TEST(HostileArchives, AppsWhosePartsLeadOutside) {
  for (const HostileApp& c : hostileApps()) {
    SCOPED_TRACE(c.name);
    HostileRun run;
    const TemporaryFolder folder;
    const fs::path app = makeApp(folder / "Payload");
    const fs::path products = makeArchive(folder / "Example.xcarchive", app);
    c.damage(app, run.canary.path());
    fs::rename(folder / "Example.xcarchive", run.place.files() / "Example.xcarchive");
    const auto packed = run.withIPA(run.packed(folder.path()));
    run.expectFailure(packed, c.lines);
    const bool hasNoApp = c.lines.front() == kNotPreparedLine;
    EXPECT_EQ(run.inspected(run.place.files() / "Example.ipa").status, hasNoApp ? 1 : 0);
    EXPECT_THAT(packed.errors, refuses(c.refused));

    const fs::path moved = run.place.files() / "Example.xcarchive/Products";
    c.damage(moved / "Applications/Example.app", run.canary.path());
    const auto archived = run.withArchive(moved);
    run.expectFailure(archived, c.archiveLines);
    run.inspected(moved.parent_path());
    EXPECT_THAT(archived.errors, refuses(c.refused));
  }
}

TEST(HostileArchives, LinksThatNobodyReadsStayLinks) {
  HostileRun run;
  const TemporaryFolder folder;
  const fs::path app = makeApp(folder / "Payload");
  fs::create_symlink(run.canary.path() / "secret.txt", app / "secret.txt");
  fs::create_symlink(run.canary.app(), app / "PlugIns");
  fs::create_directory(app / "_CodeSignature");
  fs::create_symlink(run.canary.app() / "_CodeSignature/CodeResources",
                     app / "_CodeSignature/CodeResources");
  const auto result = run.withIPA(run.packed(folder.path()));
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  run.expectNothingOfOthers();
}

/// What no .ipa can hold, but the folder of an archive can.
TEST(HostileArchives, PipesAndDevicesDoNotHoldUpARun) {
  for (const char* const name : {"Info.plist", "embedded.mobileprovision", "Example", "Icon.png"}) {
    for (const mode_t kind : {S_IFIFO, S_IFCHR}) {
      SCOPED_TRACE(std::string(name) + (kind == S_IFIFO ? " is a pipe" : " is a device"));
      HostileRun run;
      const fs::path products =
          makeArchive(run.place.files() / "Example.xcarchive", makeApp(run.place.files()));
      const fs::path part = products / "Applications/Example.app" / name;
      if (!replaceWith(kind, part)) continue;
      run.expectFailure(run.withArchive(products), {"Uploading ", kCopy, kNotPreparedLine});
    }
  }
  HostileRun run;
  const fs::path products =
      makeArchive(run.place.files() / "Example.xcarchive", makeApp(run.place.files()));
  ASSERT_TRUE(replaceWith(S_IFIFO, products.parent_path() / "Info.plist"));
  run.expectFailure(run.withArchive(products), {"Uploading ", kArchive, kNotPreparedLine});
}

TEST(HostileArchives, ArchivesThatNameAppsElsewhere) {
  struct Case {
    const char* name;
    std::function<void(const fs::path& archive, const fs::path& outside)> damage;
  };
  const auto applicationPath = [](const fs::path& archive, const std::string& path) {
    changePlist(archive / "Info.plist",
                {{"ApplicationProperties", foundation::Dictionary{{"ApplicationPath", path}}}});
  };
  const auto name = [](const fs::path& archive, const std::string& text) {
    changePlist(archive / "Info.plist",
                {{"ApplicationProperties", foundation::Dictionary{}}, {"Name", text}});
  };
  const std::string up = "../../../../../../../..";
  for (const Case& c : std::vector<Case>{
           {"absolute path",
            [&](const fs::path&archive, const fs::path&outside) {
              applicationPath(archive, outside / "Canary.app");
            }},
           {"path that climbs out",
            [&](const fs::path&archive, const fs::path&outside) {
              applicationPath(archive, up + outside.string() + "/Canary.app");
            }},
           {"path through a link and up",
            [&](const fs::path&archive, const fs::path&outside) {
              fs::create_symlink(outside / "empty", archive / "Products/Applications/link");
              applicationPath(archive, "Applications/link/../Canary.app");
            }},
           {"name that is absolute",
            [&](const fs::path&archive, const fs::path&outside) {
              name(archive, outside / "Canary");
            }},
           {"name that climbs out",
            [&](const fs::path&archive, const fs::path&outside) {
              name(archive, up + outside.string() + "/Canary");
            }},
           {"Applications is a link",
            [&](const fs::path&archive, const fs::path&outside) {
              replaceWithLink(archive / "Products/Applications", outside);
              applicationPath(archive, "Applications/Canary.app");
            }},
           {"Products is a link",
            [&](const fs::path&archive, const fs::path&outside) {
              replaceWithLink(archive / "Products", outside);
              applicationPath(archive, "Canary.app");
            }},
       }) {
    SCOPED_TRACE(c.name);
    HostileRun run;
    const fs::path products =
        makeArchive(run.place.files() / "Example.xcarchive", makeApp(run.place.files()));
    c.damage(products.parent_path(), run.canary.path());
    const auto result = run.withArchive(products);
    run.expectFailure(result, {"Uploading ", kArchive, kNotPreparedLine});
    // An absolute one is looked for inside, where there is nothing of that name.
    if (std::string_view(c.name).find("absolute") == std::string_view::npos) {
      EXPECT_THAT(result.errors, HasSubstr("Canary.app leads out of "));
    }
  }
}

/// Adds an entry of any name and kind, which `zip` itself would not do. "link" as its kind: the
/// content is where it leads to.
void addEntry(const fs::path& zip, const std::string& name, const std::string& kind,
              const std::string& content) {
  outputOf({"python3", "-c", R"(
import stat, sys, zipfile
archive, name, kind, content = sys.argv[1:]
entry = zipfile.ZipInfo(name)
entry.create_system = 3
entry.external_attr = ((stat.S_IFLNK if kind == "link" else stat.S_IFREG) | 0o755) << 16
zipfile.ZipFile(archive, "a").writestr(entry, content)
)",
            zip, name, kind, content});
}

TEST(HostileArchives, NamesThatLeadOutsideAreNotUnpackedThere) {
  struct Case {
    const char* name;
    /// Pairs of name and kind, in order; a link leads to the canary.
    std::vector<std::pair<std::string, std::string>> entries;
    /// `unzip` only takes ".." out of names, and replaces what an earlier entry has made.
    bool isUnpacked;
  };
  HostileRun shared;
  const std::string outside = shared.canary.path();
  const std::string up = "../../../../../../../..";
  for (const Case& c : std::vector<Case>{
           {"above the folder", {{up + outside + "/dropped", "file"}}, true},
           {"above, from within the app",
            {{"Payload/Example.app/" + up + outside + "/x", "file"}},
            true},
           {"absolute", {{outside + "/dropped", "file"}}, false},
           {"through a link",
            {{"Payload/Example.app/link", "link"}, {"Payload/Example.app/link/dropped", "file"}},
            false},
           {"over a link",
            {{"Payload/Example.app/link", "link"}, {"Payload/Example.app/link", "file"}},
            true},
           {"Payload is a link",
            {{"Payload", "link"}, {"Payload/Example.app/dropped", "file"}},
            false},
       }) {
    SCOPED_TRACE(c.name);
    HostileRun run;
    const TemporaryFolder folder;
    makeApp(folder / "Payload");
    const fs::path ipa = run.packed(folder.path());
    for (const auto& [name, kind] : c.entries) {
      addEntry(ipa, name, kind, kind == "link" ? outside : "dropped");
    }
    const auto result = run.withIPA(ipa);
    EXPECT_EQ(result.status, c.isUnpacked ? 0 : 1) << result.output;
    EXPECT_THAT(result.messages().at(1), StartsWith(c.isUnpacked ? "Uploaded" : kInflation));
    run.expectNothingOfOthers();
    shared.canary.expectUntouched();
  }
}

TEST(HostileArchives, PayloadIsALink) {
  HostileRun run;
  const TemporaryFolder folder;
  fs::create_symlink(run.canary.path(), folder / "Payload");
  const fs::path ipa = run.packed(folder.path());
  run.expectFailure(run.withIPA(ipa), {kNotPreparedLine});
  const auto inspected = run.inspected(ipa);
  EXPECT_EQ(inspected.status, 1);
  EXPECT_THAT(inspected.errors, HasSubstr("/Payload is a link, which is not followed\n"));
}

TEST(HostileArchives, OfTwoAppsOneIsTakenAndBothAreTheArchivesOwn) {
  HostileRun run;
  const TemporaryFolder folder;
  makeApp(folder / "Payload");
  makeApp(folder / "Payload", {.folderName = "Another.app"});
  EXPECT_EQ(run.withIPA(run.packed(folder.path())).status, 0);
  run.expectNothingOfOthers();
}

/// Where an .ipa is unpacked can be guessed.
TEST(HostileArchives, FoldersOfOthersInThePlaceOfOursAreRefused) {
  struct Case {
    const char* name;
    std::function<void(const fs::path& temporary, const fs::path& outside)> prepare;
    std::string line;
  };
  const auto link = [](const char* name) {
    return [=](const fs::path& temporary, const fs::path& outside) {
      fs::create_symlink(outside, temporary / name);
    };
  };
  for (const Case& c : std::vector<Case>{
           {"a link", link("Example"), kInflation},
           {"a link to nowhere",
            [](const fs::path&temporary, const fs::path&outside) {
              fs::create_symlink(outside / "new", temporary / "Example");
            },
            kInflation},
           {"somebody else's folder",
            [](const fs::path&temporary, const fs::path&) {
              fs::create_directory(temporary / "Example");
              if (::chown((temporary / "Example").c_str(), 4711, 4711) != 0) {
                FAIL() << "needs root";
              }
            },
            kInflation},
           {"work folders", link("com.quorvantile.ipas"), kPackaging + "-1"},
           {"finished .ipa files", link("com.quorvantile.mac"), kPackaging + "-1"},
       }) {
    if (::geteuid() != 0 && std::string_view(c.name) == "somebody else's folder") continue;
    SCOPED_TRACE(c.name);
    HostileRun run;
    const fs::path ipa = packIPA(makeApp(run.place.files()), run.place.files() / "Example.ipa");
    c.prepare(run.place.temporary(), run.canary.path());
    run.expectFailure(run.withIPA(ipa), {c.line, kNotPreparedLine});
  }
  HostileRun run;
  const fs::path products =
      makeArchive(run.place.files() / "Example.xcarchive", makeApp(run.place.files()));
  link("com.quorvantile.mac")(run.place.temporary(), run.canary.path());
  run.expectFailure(run.withArchive(products), {"Uploading ", kCopy, kNotPreparedLine});
}

/// The rest of an inflated archive stays, and the next of its name is unpacked over it.
TEST(HostileArchives, LinksThatAreInTheWayAreNotFollowedAndStay) {
  const std::vector<std::string> links = {"Payload/Example.app", "Other"};
  for (const std::string& link : links) {
    SCOPED_TRACE(link);
    HostileRun run;
    const fs::path app = makeApp(run.place.files());
    put(app / "empty/file", "new");
    const fs::path ipa =
        packIPA(app, run.place.files() / "Example.ipa", {{"Other/secret.txt", "new"}});
    const fs::path inflated = run.place.temporary() / "Example";
    fs::create_directories(inflated / "Payload");
    fs::create_symlink(run.canary.path(), inflated / link);
    fs::create_symlink(run.canary.path(), inflated / "unrelated");
    run.expectFailure(run.withIPA(ipa), {kInflation, kNotPreparedLine});
    EXPECT_TRUE(fs::is_symlink(inflated / link));
    EXPECT_TRUE(fs::is_symlink(inflated / "unrelated"));
    fs::remove(inflated / link);
    EXPECT_EQ(run.withIPA(ipa).status, 0);
    run.expectNothingOfOthers();
    EXPECT_TRUE(fs::is_symlink(inflated / "unrelated"));
  }
}

/// What the run sends, as names.
std::vector<std::string> uploadedNames(StandInService& service) {
  return factsOf(service.form(ServiceCall::upload).back().value).names;
}

TEST(HostileArchives, NothingOfAnEarlierArchiveIsSent) {
  HostileRun run;
  const fs::path app = makeApp(run.place.files());
  const fs::path honest = packIPA(app, run.place.files() / "Example.ipa");
  // An archive of the same name leaves more in the app, and another app, before it fails.
  const TemporaryFolder folder;
  const fs::path ipa =
      packIPA(app, folder / "Example.ipa",
              {{"Payload/Example.app/Frameworks/evil.dylib", contentsOf(universalExecutable())},
               {"Payload/Aaa.app/Info.plist", "evil"}});
  std::string bytes = contentsOf(ipa);
  const auto profile = bytes.find("embedded.mobileprovision");
  bytes[profile + 400] ^= 1;
  put(ipa, bytes);
  run.expectFailure(run.withIPA(ipa), {kInflation, kNotPreparedLine});
  const fs::path payload = run.place.temporary() / "Example/Payload";
  ASSERT_TRUE(fs::exists(payload / "Example.app/Frameworks/evil.dylib"));
  const auto result = run.withIPA(honest);
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  EXPECT_THAT(result.errors, HasSubstr("ignoring what did not come with this archive in " +
                                       payload.string() + ": Aaa.app\n"));
  EXPECT_TRUE(fs::exists(payload / "Aaa.app/Info.plist"));
  const auto sent = uploadedNames(run.service);
  EXPECT_THAT(sent, testing::Contains("Payload/Example.app/Info.plist"));
  EXPECT_THAT(sent, testing::Each(testing::Not(HasSubstr("evil"))));
  EXPECT_THAT(sent, testing::Each(testing::Not(HasSubstr("Aaa"))));
}

/// 2 GiB of zeros are two megabytes in an archive.
TEST(HostileArchives, AnArchiveThatGrowsTooMuchIsNotUnpacked) {
  HostileRun run;
  const fs::path app = makeApp(run.place.files());
  fs::resize_file(app / "Example", (std::uintmax_t{1} << 30) + 1);
  outputOf({"sh", "-c", R"(cd "$1" && zip -q -1 -r "$2" .)", "sh", run.place.files(),
            run.place.files() / "Example.ipa"});
  run.expectFailure(run.withIPA(run.place.files() / "Example.ipa"), {kInflation, kNotPreparedLine});
  EXPECT_THAT(run.place.leftovers(), testing::Each(testing::Not(HasSubstr("Payload"))));
}

}  // namespace
}  // namespace test

// Apps that cannot be handed off. Each ends with its line and status 1, and leaves nothing behind
// but what it is meant to.
#include <cstdlib>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/format/PropertyList.h"
#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/StandInService.h"
#include "tests/support/StandInSigner.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kBanner = "Quorvantile.framework/sendoff 1.3.6 (19)";
const std::string kNotPrepared = "Failed to prepare the binary for release";
const std::string kNoBinary = "Unable to read Mach-O binary.";

void write(const fs::path& path, std::string_view content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

class BadInputTest : public testing::Test {
 protected:
  RunResult runIPA(const fs::path& ipa, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"-ipaPath", ipa, "-QuorvantileAPIEndpoint", service_.url()});
    return place_.run(more);
  }
  /// Neither apps nor .ipa files; a work folder of a packaging that failed may be there.
  void expectCleanedUp() {
    for (const std::string& name : place_.leftovers()) {
      if (name.starts_with("com.quorvantile.ipas/")) continue;
      EXPECT_THAT(name, testing::Not(testing::EndsWith(".ipa")));
      EXPECT_THAT(name, testing::Not(testing::EndsWith(".app")));
    }
  }

  StandInService service_;
  Workplace place_;
};

TEST_F(BadInputTest, FilesThatAreNoIPA) {
  const std::string good =
      contentsOf(packIPA(makeApp(place_.files()), place_.files() / "Example.ipa"));
  // What the commands leave in ../x.zip, run in an empty folder.
  const auto zip = [](const std::string& commands) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "packed");
    outputOf({"sh", "-c", "cd \"$1\" && " + commands, "sh", (folder / "packed").string()});
    return contentsOf(folder / "x.zip");
  };
  const std::string pack = " && zip -q -r ../x.zip .";
  const std::string inflation =
      "Unable to inflate IPA to temporary path: Error "
      "Domain=QVTFileSystemUtilsErrorDomain Code=-1 UserInfo={";
  struct Case {
    const char* name;
    std::string bytes;
    /// Empty: no line but the summary.
    std::string line;
  };
  for (const Case& c : std::vector<Case>{
           {"empty", "", inflation},
           {"text", "hello\n", inflation},
           {"first half", good.substr(0, good.size() / 2), inflation},
           {"without its last bytes", good.substr(0, good.size() - 30), inflation},
           {"encrypted",
            zip("mkdir Payload && echo x >Payload/x && zip -q -P secret -r ../x.zip ."), inflation},
           {"no Payload", zip("mkdir Other && touch Other/x" + pack), ""},
           {"empty Payload", zip("mkdir Payload" + pack), ""},
           {"Payload is a file", zip("touch Payload" + pack), ""},
           {"no app in Payload", zip("mkdir -p Payload/Example.APP && touch Payload/x" + pack), ""},
       }) {
    SCOPED_TRACE(c.name);
    write(place_.files() / c.name, c.bytes);
    const auto result = runIPA(place_.files() / c.name);
    EXPECT_EQ(result.status, 1);
    const auto lines = result.messages();
    ASSERT_EQ(lines.size(), c.line.empty() ? 2u : 3u) << result.output;
    EXPECT_EQ(lines.back(), kNotPrepared);
    if (!c.line.empty()) {
      EXPECT_THAT(lines[1], StartsWith(c.line));
      EXPECT_THAT(lines[1], testing::AnyOf(HasSubstr("signature not found"), HasSubstr("zipfile"),
                                           HasSubstr("password")))
          << "unzip's own words are missing";
    }
  }
  EXPECT_EQ(service_.server().connectionCount(), 0u);
}

TEST_F(BadInputTest, AppsInEveryStateOfDisrepair) {
  const std::string profile = "Unable to read provisioning profile at ";
  const std::string certificate =
      "Unable to find a certificate with a private key: Error "
      "Domain=QVTProvisioningProfileErrorDomain Code=-1 UserInfo={";
  const std::string packaging =
      "Unable to package source due to error: Error Domain=QVTIPABuilderErrorDomain Code=";
  const std::string noApp = "Unable to find application in Quorvantile. Response code: ";
  const auto profileWith = [](const fs::path& app, const foundation::Dictionary& changes) {
    ProfileOptions options = AppOptions::exampleProfile();
    options.developerCertificates = {signingFamily().leaf.der()};
    foundation::Dictionary dictionary = options.dictionary();
    for (const auto& [key, value] : changes) dictionary[key] = value;
    write(app / "embedded.mobileprovision",
          makeProvisioningProfile(dictionary, signingFamily().leaf).text());
  };
  const auto resize = [](const char* file, std::size_t size) {
    return [=](const fs::path& app) { fs::resize_file(app / file, size); };
  };
  const auto executable = [](std::string bytes) {
    return [bytes = std::move(bytes)](const fs::path& app) { write(app / "Example", bytes); };
  };
  MachOImage withUUID = MachOImage::arm64();
  withUUID.uuid("00112233445566778899aabbccddeeff");
  FatSlice nowhere = FatSlice::of(withUUID);
  nowhere.offset = 0xfffffff0;
  const std::string text = "#!/bin/sh\necho this is no Mach-O file\n";
  const std::string withoutUUID = MachOImage::arm64().bytes();
  const std::string elsewhere = universalFile({FatSlice::of(withUUID), nowhere});
  const std::string countless = universalFile({nowhere}, 4, 0x7fffffff);

  struct Case {
    const char* name;
    std::function<void(const fs::path& app)> damage;
    /// The lines between the banner and the end, each as it begins.
    std::vector<std::string> lines;
    /// For distribution: the run sends it as is.
    bool isSigned = false;
  };
  for (const Case& c : std::vector<Case>{
           {"no profile",
            [](const fs::path& app) { fs::remove(app / "embedded.mobileprovision"); },
            {profile, kNotPrepared}},
           {"empty profile", resize("embedded.mobileprovision", 0), {profile, kNotPrepared}},
           {"profile cut off", resize("embedded.mobileprovision", 300), {profile, kNotPrepared}},
           {"profile without plist",
            [](const fs::path& app) {
              write(app / "embedded.mobileprovision", std::string(9000, 'x'));
            },
            {profile, kNotPrepared}},
           {"plain plist as profile",
            [](const fs::path& app) {
              fs::copy_file(app / "Info.plist", app / "embedded.mobileprovision",
                            fs::copy_options::overwrite_existing);
            },
            {profile, kNotPrepared}},
           {"profile is a folder",
            [](const fs::path& app) {
              fs::remove(app / "embedded.mobileprovision");
              fs::create_directory(app / "embedded.mobileprovision");
            },
            {profile, kNotPrepared}},
           {"no prefix",
            [&](const fs::path& app) {
              profileWith(app, {{"ApplicationIdentifierPrefix", foundation::Array{}}});
            },
            {profile, kNotPrepared}},
           {"certificates of the wrong type",
            [&](const fs::path& app) {
              profileWith(app, {{"DeveloperCertificates", "none"}});
            },
            {certificate, kNotPrepared}},
           {"a certificate that is none",
            [&](const fs::path& app) {
              profileWith(app, {{"DeveloperCertificates",
                                 foundation::Array{foundation::Data(std::string("junk")), 7}}});
            },
            {certificate, kNotPrepared}},
           {"no Info.plist",
            [](const fs::path& app) { fs::remove(app / "Info.plist"); },
            {packaging + "-10", kNotPrepared}},
           {"Info.plist is text",
            [](const fs::path& app) { write(app / "Info.plist", "\x01\x02<<"); },
            {packaging + "-10", kNotPrepared}},
           {"Info.plist is an array",
            [](const fs::path& app) {
              write(app / "Info.plist", *foundation::PropertyList::xml(foundation::Array{}));
            },
            {packaging + "-10", kNotPrepared}},
           {"Info.plist of wrong types",
            [](const fs::path& app) {
              write(app / "Info.plist",
                    *foundation::PropertyList::xml(foundation::Dictionary{
                        {"CFBundleIdentifier", 7}, {"CFBundleExecutable", foundation::Array{}}}));
            },
            {packaging + "-10", kNotPrepared}},
           {"Info.plist of wrong types, signed",
            [](const fs::path& app) {
              write(app / "Info.plist", *foundation::PropertyList::xml(foundation::Dictionary{
                                            {"CFBundleIdentifier", 7},
                                            {"CFBundleExecutable", foundation::Array{}},
                                            {"QuorvantileSignedForDistribution", true}}));
            },
            {noApp, "Does this app belong to this org?"}},
           {"no executable",
            [](const fs::path& app) { fs::remove(app / "Example"); },
            {kNoBinary, "Unable to load IPA at (null)", "Failed to upload binary"}},
           {"short executable",
            executable("\xcf\xfa\xed\xfe"),
            {kNoBinary, "Unable to load IPA at (null)", "Failed to upload binary"}},
           {"text as executable", executable(text), {packaging + "-10", kNotPrepared}},
           {"text as executable, signed", executable(text), {"Unexpected error: "}, true},
           {"no segments", executable(withoutUUID), {packaging + "-6", kNotPrepared}},
           {"no UUID, signed", executable(withoutUUID), {"Unexpected error: "}, true},
           {"slices point nowhere", executable(elsewhere), {packaging + "-10", kNotPrepared}},
           {"slices point nowhere, signed", executable(elsewhere), {"Unexpected error: "}, true},
           {"more slices than bytes", executable(countless), {packaging + "-10", kNotPrepared}},
           {"more slices than bytes, signed", executable(countless), {"Unexpected error: "}, true},
       }) {
    SCOPED_TRACE(c.name);
    const TemporaryFolder folder;
    AppOptions options;
    if (c.isSigned) options.info = {{"QuorvantileSignedForDistribution", true}};
    const fs::path app = makeApp(folder.path(), options);
    c.damage(app);
    const auto result = runIPA(packIPA(app, folder / "Example.ipa"));
    EXPECT_EQ(result.status, 1);
    const auto lines = result.messages();
    ASSERT_GE(lines.size(), 1 + c.lines.size()) << result.output;
    for (std::size_t i = 0; i < c.lines.size(); ++i)
      EXPECT_THAT(lines[i + 1], StartsWith(c.lines[i]));
    expectCleanedUp();

    // The archive route meets the same trouble.
    place_.environment()["ARCHIVE_PRODUCTS_PATH"] = makeArchive(folder / "Example.xcarchive", app);
    const auto archived = place_.run({"-QuorvantileAPIEndpoint", service_.url()});
    EXPECT_EQ(archived.status, 1);
    EXPECT_THAT(archived.messages().at(2), StartsWith(c.lines[0]));
    expectCleanedUp();
  }
}

TEST_F(BadInputTest, AFailedToolsOwnWordsAreInTheLine) {
  const StandInSigner signer;
  place_.environment()["PATH"] = std::getenv("PATH");
  const fs::path ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
  signer.setStatus(StandInSigner::Run::sign, 3);
  signer.setOutput(StandInSigner::Run::sign, "", "Example.app: the\nkeychain is \"locked\"");
  const auto result = runIPA(ipa);
  EXPECT_EQ(result.status, 1);
  const auto lines = result.messages();
  ASSERT_EQ(lines.size(), 3u) << result.output;
  EXPECT_THAT(lines[1], StartsWith("Unable to package source due to error: Error "
                                   "Domain=QVTIPABuilderErrorDomain Code=-6 UserInfo={"));
  EXPECT_THAT(lines[1], HasSubstr("Domain=QVTCodeSignerErrorDomain Code=-2"));
  EXPECT_THAT(lines[1], HasSubstr("the\\nkeychain is"));
  expectCleanedUp();
}

TEST_F(BadInputTest, NoKeyForTheProfile) {
  fs::remove(place_.home() / "Library/Keychains/identity.pem");
  const fs::path ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
  const auto result = runIPA(ipa);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.messages().at(1), HasSubstr("iPhone Distribution: Example Corp"));
  EXPECT_THAT(result.messages().back(), kNotPrepared);
  expectCleanedUp();
}

TEST_F(BadInputTest, MissingTools) {
  const StandInSigner signer;
  const fs::path ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
  // A tool without those of the tree beside it, and a PATH with all that it needs but one.
  const TemporaryFolder folder;
  const fs::path tool = folder.write("bin/sendoff", contentsOf(kTool));
  fs::permissions(tool, fs::perms::owner_all);
  for (const char* const name : {"unzip", "zip", "xcrun"}) {
    const std::string found = outputOf({"which", name});
    const fs::path script =
        folder.write(fs::path("path") / name,
                     "#!/bin/sh\nexec " + found.substr(0, found.find('\n')) + " \"$@\"");
    fs::permissions(script, fs::perms::owner_all);
  }
  const std::string launch = "Unexpected error: cannot launch : ";
  const std::string notFound =
      "Unable to package source due to error: Error Domain=QVTIPABuilderErrorDomain Code=-12";
  place_.environment()["PATH"] = folder / "path";
  RunOptions options = place_.options({"-ipaPath", ipa, "-QuorvantileAPIEndpoint", service_.url()});
  options.command[0] = tool;
  for (const auto& [name, line] :
       {std::pair("unzip", launch), std::pair("zip", launch), std::pair("xcrun", notFound)}) {
    SCOPED_TRACE(name);
    fs::rename(folder / "path" / name, folder / name);
    const auto result = runProgram(options);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages().at(1), StartsWith(line));
    EXPECT_THAT(result.errors, testing::EndsWith(std::string(" ") + name + " is not in PATH\n"));
    EXPECT_EQ(result.errors.find(" is not in "), result.errors.rfind(" is not in "));
    expectCleanedUp();
    fs::rename(folder / name, folder / "path" / name);
  }
  signer.forgetTool("codesign_allocate");
  EXPECT_THAT(runProgram(options).messages().at(1), StartsWith(notFound));
  expectCleanedUp();
}

TEST_F(BadInputTest, Archives) {
  const fs::path app = makeApp(place_.files());
  const fs::path products = makeArchive(place_.files() / "Example.xcarchive", app);
  struct Case {
    const char* name;
    std::string variable;
    std::string line;
  };
  fs::create_directories(place_.files() / "Empty.xcarchive/Products");
  for (const Case& c : std::vector<Case>{
           {"nothing there", "/nowhere/Products", "Unable to read archive at /nowhere"},
           {"no Info.plist", place_.files() / "Empty.xcarchive/Products",
            "Unable to read archive at " + (place_.files() / "Empty.xcarchive").string()},
           {"empty variable", "", "Unable to read archive at "},
       }) {
    SCOPED_TRACE(c.name);
    place_.environment()["ARCHIVE_PRODUCTS_PATH"] = c.variable;
    const auto result = place_.run({"-QuorvantileAPIEndpoint", service_.url()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(),
                ElementsAre(kBanner, StartsWith("Uploading archive at "), c.line, kNotPrepared));
    EXPECT_THAT(place_.leftovers(), IsEmpty());
  }
  fs::remove_all(products / "Applications");
  place_.environment()["ARCHIVE_PRODUCTS_PATH"] = products;
  EXPECT_THAT(place_.run({}).messages().at(2), StartsWith("Unable to read archive at "));
}

TEST_F(BadInputTest, BundleIdentifiersThatLeadToAnotherPlaceOfTheService) {
  const auto runWith = [&](const std::string& identifier) {
    const TemporaryFolder folder;
    const fs::path app = makeApp(folder.path(), {.info = {{"CFBundleIdentifier", identifier}}});
    return runIPA(packIPA(app, place_.files() / "Example.ipa"));
  };
  for (const auto& [identifier, shown] :
       {std::pair("../../../../../admin/delete?x=", "../../../../../admin/delete?x="),
        std::pair("com.victim/releases/1?x=#", "com.victim/releases/1?x=#"), std::pair("..", ".."),
        std::pair("com.example.app\nX: y", "com.example.app\\nX: y")}) {
    const auto result = runWith(identifier);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(),
                ElementsAre(kBanner, std::string("The bundle identifier ") + shown +
                                         " cannot be part of a request to the service"));
    expectCleanedUp();
  }
  EXPECT_THAT(service_.server().requests(), IsEmpty());
  runWith("com.example.gr\u00fcn");
  ASSERT_FALSE(service_.server().requests().empty());
  EXPECT_THAT(service_.server().requests()[0]->target,
              HasSubstr("/apps/com.example.gr%C3%BCn/releases/"));
}

TEST_F(BadInputTest, AVersionThatWouldAddAFieldToTheForm) {
  const std::string version =
      "345\r\n--AaB03x\r\nContent-Disposition: form-data; "
      "name=\"emails[]\"\r\n\r\nevil@example.org";
  const fs::path app = makeApp(place_.files(), {.info = {{"CFBundleVersion", version}}});
  const auto result = runIPA(packIPA(app, place_.files() / "Example.ipa"));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.messages(), ElementsAre(kBanner, "Unable to submit build. Response code: 0",
                                             "Failed to upload binary"));
  EXPECT_THAT(result.errors,
              HasSubstr("The request was not sent: the form field app[build_version] "
                        "has the form's own delimiter in its value"));
  EXPECT_THAT(service_.calls(), ElementsAre(ServiceCall::validate));
  expectCleanedUp();
}

TEST_F(BadInputTest, Notes) {
  const fs::path ipa = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
  write(place_.files() / "latin1.txt", "gr\xfc\xdf\n");
  for (const fs::path& notes : {place_.files() / "missing.txt", place_.files() / "latin1.txt",
                                place_.files(), fs::path("/dev/zero")}) {
    SCOPED_TRACE(notes);
    const auto result = runIPA(ipa, {"-notesPath", notes});
    EXPECT_EQ(result.status, 1);
    ASSERT_EQ(result.messages().size(), 2u) << result.output;
    EXPECT_THAT(result.messages()[1], StartsWith("Could not read release notes file at path " +
                                                 notes.string() + ", error: "));
    EXPECT_GT(result.messages()[1].size(), 60 + notes.string().size());
    expectCleanedUp();
  }
  EXPECT_THAT(service_.calls(),
              testing::AllOf(testing::SizeIs(4), testing::Each(ServiceCall::validate)));
}

TEST_F(BadInputTest, ATemporaryFolderThatIsFull) {
  if (runCommand({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mounts here";
  const fs::path app = makeApp(place_.files());
  // The .ipa is a megabyte of what does not shrink; inflated, copied, and packed again.
  std::string noise(1 << 20, '\0');
  std::uint32_t state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
  write(app / "noise", noise);
  const fs::path ipa = packIPA(app, place_.files() / "Example.ipa");
  const fs::path products = makeArchive(place_.files() / "Example.xcarchive", app);
  place_.environment()["ARCHIVE_PRODUCTS_PATH"] = products;
  for (const char* const size : {"4k", "64k", "1600k", "3000k"}) {
    for (const std::string& route : {std::string(), "-ipaPath " + ipa.string()}) {
      SCOPED_TRACE(std::string(size) + " " + route);
      auto environment = place_.environment();
      environment["size"] = size;
      const auto result = runProgram(
          {.command = {"/usr/bin/unshare", "-m", "sh", "-c",
                       "mount -t tmpfs -o size=$size none \"$TMPDIR\" && " + kTool + " " + kKey +
                           " " + kSecret + " " + route + " -QuorvantileAPIEndpoint " +
                           service_.url() + "; echo status $?; find \"$TMPDIR\" -name '*.ipa'"},
           .environment = environment});
      const auto lines = result.messages();
      ASSERT_GE(lines.size(), 4u) << result.output;
      EXPECT_EQ(lines.back(), "status 1") << result.output;
      EXPECT_EQ(lines[lines.size() - 2], kNotPrepared);
      EXPECT_THAT(lines[lines.size() - 3], StartsWith("Unable to "));
    }
  }
  EXPECT_EQ(service_.server().connectionCount(), 0u);
}

/// A hole in a file has no place on a full file system of this kind; touching it through a mapping
/// is the same to a process as touching what somebody else has just cut off.
TEST_F(BadInputTest, AnExecutableThatIsCutShortWhileItIsRead) {
  if (runCommand({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mounts here";
  const fs::path app = makeApp(place_.files());
  const auto size = fs::file_size(app / "Example");
  fs::resize_file(app / "Example", 0x1000);
  fs::resize_file(app / "Example", size);
  makeArchive(place_.files() / "Example.xcarchive", app);
  auto environment = place_.environment();
  environment["files"] = place_.files();
  environment["ARCHIVE_PRODUCTS_PATH"] = place_.files() / "full/Example.xcarchive/Products";
  const auto result = runProgram(
      {.command = {"/usr/bin/unshare", "-m", "sh", "-c",
                   "cd $files && mkdir full && mount -t tmpfs -o size=512k none full && cp -a "
                   "--sparse=always Example.xcarchive full && (cat /dev/zero >full/rest || true) "
                   "2>/dev/null; " +
                       kTool + " " + kKey + " " + kSecret + "; echo status $?"},
       .environment = environment});
  const auto lines = result.messages();
  ASSERT_EQ(lines.size(), 4u) << result.output << result.errors;
  EXPECT_THAT(lines[2], testing::AllOf(StartsWith("Unexpected error: "),
                                       HasSubstr("Example.app/Example was truncated")));
  EXPECT_EQ(lines[3], "status 1");
  expectCleanedUp();
}

TEST_F(BadInputTest, ATemporaryFolderThatIsNotWritable) {
  const fs::path app = makeApp(place_.files());
  const fs::path ipa = packIPA(app, place_.files() / "Example.ipa");
  place_.environment()["ARCHIVE_PRODUCTS_PATH"] =
      makeArchive(place_.files() / "Example.xcarchive", app);
  const fs::path tool = place_.files() / "sendoff";
  fs::copy_file(kTool, tool);
  fs::permissions(place_.files().parent_path(), fs::perms::all);
  fs::permissions(place_.temporary(), fs::perms(0555));
  for (const std::vector<std::string>& route : {std::vector<std::string>{}, {"-ipaPath", ipa}}) {
    RunOptions options{.command = {tool, kKey, kSecret},
                       .environment = place_.environment(),
                       .prepare = becomeUnprivileged};
    options.command.insert(options.command.end(), route.begin(), route.end());
    const auto result = runProgram(options);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("Permission denied"));
    EXPECT_EQ(result.messages().back(), kNotPrepared);
  }
  fs::permissions(place_.temporary(), fs::perms::all);
}

TEST_F(BadInputTest, ATemporaryFolderThatAnotherUserHas) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
  // Not the user of other tests, which may run beside this one.
  constexpr uid_t user = kUnprivilegedUser + 1;
  const fs::path taken = "/tmp/sendoff-" + std::to_string(user);
  const fs::path tool = place_.files() / "sendoff";
  fs::copy_file(kTool, tool);
  fs::permissions(place_.files().parent_path(), fs::perms::all);
  place_.environment().erase("TMPDIR");
  fs::create_directory(taken);
  const auto result =
      runProgram({.command = {tool, kKey, kSecret, "-ipaPath",
                              packIPA(makeApp(place_.files()), place_.files() / "Example.ipa")},
                  .environment = place_.environment(),
                  .prepare = [] {
                    if (::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(126);
                  }});
  EXPECT_THAT(result.errors,
              HasSubstr(taken.string() + " belongs to user 0, so " + taken.string()));
  EXPECT_THAT(result.output, Not(HasSubstr("is refused")));
  for (const auto& entry : fs::directory_iterator("/tmp")) {
    EXPECT_THAT(entry.path(), Not(StartsWith(taken.string() + "-")));
  }
  EXPECT_TRUE(fs::is_empty(taken));
  fs::remove(taken);
}

}  // namespace
}  // namespace test

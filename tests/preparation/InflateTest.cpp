#include <fstream>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "preparation/Inflation.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"
#include "tests/preparation/Archives.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

std::optional<foundation::Error> errorOf(const fs::path& archive) {
  std::optional<foundation::Error> error;
  EXPECT_EQ(QVTFileSystemUtils::inflateToTemporaryPathArchive(archive, &error), std::nullopt);
  return error;
}

TEST(Inflate, UnpacksTheNamedArchiveAndNoneThatItsNameWouldMatch) {
  // The neighbours are what `unzip` would take instead, were the name a pattern to it.
  const struct {
    const char* folder;
    const char* name;
    std::vector<const char*> neighbours;
  } cases[] = {
      {"plain", "App.ipa", {"App2.ipa"}},
      {"my builds", "My App.ipa", {"My.ipa"}},
      {"plain", "App[1].ipa", {"App1.ipa"}},
      {"plain", "[1].ipa", {"1.ipa"}},
      {"plain", "a*b.ipa", {"axb.ipa", "ab.ipa"}},
      {"plain", "a?b.ipa", {"axb.ipa", "a1b.ipa"}},
      {"plain", "a\\b.ipa", {"ab.ipa"}},
      {"plain", "a\\[1].ipa", {"a[1].ipa", "a1.ipa", "a\\1.ipa"}},
      {"plain", "App].ipa", {"App.ipa"}},
      {"plain", "[!a].ipa", {"b.ipa"}},
      {"plain", ".[h].ipa", {".h.ipa"}},
      {"build [2]", "App.ipa", {"App2.ipa"}},
      {"build [2]", "App[1].ipa", {"App1.ipa"}},
      {"build [2]", "a\\b.ipa", {"ab.ipa"}},
      {"a\\[2", "a\\b.ipa", {"ab.ipa"}},
      {"what? *", "100% #1.ipa", {"100.ipa"}},
      {"plain", "\u00dcber.ipa", {"U\u0308ber.ipa"}},
      {"plain", "U\u0308ber.ipa", {"\u00dcber.ipa"}},
      {"\u6784\u5efa", "\u5e94\u7528[1].ipa", {"\u5e94\u75281.ipa"}},
      {"plain", "App", {"App.zip", "App.ZIP"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.folder) + "/" + c.name);
    const test::TemporaryDirectoryScope temporary;
    const test::TemporaryFolder folder;
    for (const char* const neighbour : c.neighbours) {
      test::pack(folder / c.folder / neighbour, {{"which", "a neighbour"}});
    }
    test::pack(folder / c.folder / c.name, {{"which", "the right one"}});
    std::optional<foundation::Error> error;
    const auto inflated =
        QVTFileSystemUtils::inflateToTemporaryPathArchive(folder / c.folder / c.name, &error);
    ASSERT_TRUE(inflated) << error->description();
    std::string stem = c.name;
    if (stem.ends_with(".ipa")) stem.resize(stem.size() - 4);
    EXPECT_EQ(*inflated, temporary.path().string() + "/" + stem + "/");
    EXPECT_EQ(test::contentsOf(*inflated + "which"), "the right one");
  }
}

/// A text for each item of the folder, links by where they lead.
std::map<std::string, std::string> contentOf(const fs::path& folder) {
  std::map<std::string, std::string> content;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder);
    if (entry.is_symlink()) {
      content[name] = "-> " + fs::read_symlink(entry.path()).string();
    } else if (!entry.is_directory()) {
      content[name] = test::contentsOf(entry.path());
    }
  }
  return content;
}

// In "Payload" only what the archive has brought counts, and nothing older goes but its own apps.
TEST(Inflate, OnlyAppsOfTheArchiveAreTaken) {
  const test::TemporaryFolder folder;
  test::pack(folder / "Example.ipa", {{"Payload/Example.app/new", "new"}, {"Other/x", "new"}});
  test::pack(folder / "empty.ipa", {{"Other/x", "new"}});
  // The directory's reader refuses it, and `unzip` does not.
  folder.write("trailing.ipa", test::contentsOf(folder / "Example.ipa") + "x");
  using Content = std::map<std::string, std::string>;
  struct Case {
    const char* name;
    const char* archive;
    Content before;
    Content after;
    std::vector<std::string> apps;
    std::vector<std::string> others;
  };
  for (const Case& c : std::vector<Case>{
           {"others' apps, files and links",
            "Example.ipa",
            {{"Payload/Aaa.app/x", "old"},
             {"Payload/Zzz.app/link", "-> /tmp"},
             {"Payload/x", "old"},
             {"Payload/Old.app", "-> /tmp"},
             {"elsewhere", "-> /tmp"},
             {"Other/x", "old"}},
            {{"Payload/Aaa.app/x", "old"},
             {"Payload/Zzz.app/link", "-> /tmp"},
             {"Payload/x", "old"},
             {"Payload/Old.app", "-> /tmp"},
             {"elsewhere", "-> /tmp"},
             {"Other/x", "new"},
             {"Payload/Example.app/new", "new"}},
            {"Example.app"},
            {"Aaa.app", "Old.app", "Zzz.app"}},
           {"leftovers of its own app",
            "Example.ipa",
            {{"Payload/Example.app/Frameworks/evil.dylib", "old"},
             {"Payload/Example.app/link", "-> /tmp"}},
            {{"Other/x", "new"}, {"Payload/Example.app/new", "new"}},
            {"Example.app"},
            {}},
           {"an archive without apps",
            "empty.ipa",
            {{"Payload/Example.app/x", "old"}},
            {{"Other/x", "new"}, {"Payload/Example.app/x", "old"}},
            {},
            {"Example.app"}},
           {"an archive whose directory cannot be read",
            "trailing.ipa",
            {{"Payload/Example.app/x", "old"}},
            {{"Other/x", "new"},
             {"Payload/Example.app/new", "new"},
             {"Payload/Example.app/x", "old"}},
            {},
            {"Example.app"}},
           {"the same into a new folder",
            "trailing.ipa",
            {},
            {{"Other/x", "new"}, {"Payload/Example.app/new", "new"}},
            {"Example.app"},
            {}},
       }) {
    SCOPED_TRACE(c.name);
    const test::TemporaryFolder parent;
    const fs::path target = parent / fs::path(c.archive).stem();
    for (const auto& [path, content] : c.before) {
      fs::create_directories((target / path).parent_path());
      if (content.starts_with("-> ")) {
        fs::create_symlink(content.substr(3), target / path);
      } else {
        parent.write(target / path, content);
      }
    }
    const auto inflation =
        inflateArchive(folder / c.archive, {.parent = parent.path().string() + "/"});
    ASSERT_TRUE(inflation) << inflation.error().description();
    EXPECT_EQ(contentOf(target), c.after);
    EXPECT_EQ(inflation->apps, c.apps);
    EXPECT_THAT(inflation->otherApps, testing::UnorderedElementsAreArray(c.others));
  }
}

TEST(Inflate, LinksInItsWayAreLeftAloneAndRefused) {
  const test::TemporaryFolder folder;
  test::pack(folder / "A.ipa", {{"Payload/A.app/x", "new"}, {"Other/x", "new"}});
  fs::create_directories(folder / "uncertain");
  test::pack(folder / "uncertain/A.ipa", {{"Payload/A.app/x", "new"}, {"Icon\r", "new"}});
  test::pack(folder / "linked/A.ipa", {{"Payload/A.app/x", "new"}, {"Other/link", "-> x"}});
  struct Case {
    const char* archive;
    const char* link;
    bool isRefused = true;
  };
  for (const Case& c :
       {Case{"A.ipa", "Payload"}, Case{"A.ipa", "Payload/A.app"}, Case{"A.ipa", "Other"},
        Case{"A.ipa", "Other/x"}, Case{"A.ipa", "unrelated", false},
        Case{"uncertain/A.ipa", "unrelated"}, Case{"linked/A.ipa", "Other/link", false}}) {
    SCOPED_TRACE(c.link);
    const test::TemporaryFolder parent;
    const fs::path link = parent / "A" / c.link;
    fs::create_directories(link.parent_path());
    fs::create_directory(parent / "outside");
    fs::create_directory_symlink(parent / "outside", link);
    const auto inflation =
        inflateArchive(folder / c.archive, {.parent = parent.path().string() + "/"});
    EXPECT_EQ(!inflation, c.isRefused);
    if (c.isRefused) {
      EXPECT_EQ(inflation.error().localizedDescription(),
                "cannot unpack over " + link.string() + ": it is a link");
    }
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::is_empty(parent / "outside"));
  }
}

TEST(Inflate, WhatIsTooLargeIsRefusedAndRemoved) {
  const test::TemporaryFolder folder;
  const auto sizeOf = [](const fs::path& path) { return std::to_string(fs::file_size(path)); };
  test::pack(folder / "zeros.ipa", {{"Payload/A.app/x", std::string(500'000, '\0')}});
  // Declares only one byte of its 500,000, in the directory and before the data.
  std::string lie = test::contentsOf(folder / "zeros.ipa");
  for (auto at = lie.find("\x20\xa1\7\0"s); at != lie.npos; at = lie.find("\x20\xa1\7\0"s)) {
    lie.replace(at, 4, "\1\0\0\0"s);
  }
  folder.write("lie.ipa", lie);
  struct Case {
    const char* name;
    const char* archive;
    InflationLimits limits;
    const char* size = nullptr;
  };
  for (const Case& c : {
           Case{"allowed", "zeros.ipa", {.most = 500'000, .always = 500'000}},
           Case{"in total", "zeros.ipa", {.most = 499'999}, "500000"},
           Case{"for its size", "zeros.ipa", {.always = 499'999}, "500000"},
           Case{"large for its size", "zeros.ipa", {.always = 1, .timesArchive = 1000}},
           Case{"on disk", "lie.ipa", {.most = 400'000}, "500000"},
       }) {
    SCOPED_TRACE(c.name);
    const test::TemporaryDirectoryScope temporary;
    const std::string archive = folder / c.archive;
    const auto inflation = inflateArchive(archive, {.limits = c.limits});
    ASSERT_EQ(!inflation, c.size != nullptr);
    TemporaryItems::releaseAll();
    if (!c.size) continue;
    EXPECT_EQ(inflation.error().localizedDescription(), "cannot unpack " + archive + ": its " +
                                                            sizeOf(archive) + " bytes hold " +
                                                            c.size + ", more than is allowed");
    EXPECT_FALSE(fs::exists(temporary.path() / fs::path(c.archive).stem() / "Payload"));
  }
}

TEST(Inflate, ASecondArchiveOfTheNameGoesOverTheFirst) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  test::pack(folder / "one/App.ipa", {{"same", "one"}, {"only", "one"}});
  test::pack(folder / "two/App.ipa", {{"same", "two"}});
  const auto first = QVTFileSystemUtils::inflateToTemporaryPathArchive(folder / "one/App.ipa");
  const auto second = QVTFileSystemUtils::inflateToTemporaryPathArchive(folder / "two/App.ipa");
  ASSERT_TRUE(first && second);
  EXPECT_EQ(*first, *second);
  EXPECT_EQ(test::contentsOf(*second + "same"), "two");
  EXPECT_EQ(test::contentsOf(*second + "only"), "one");
}

TEST(Inflate, AFailedUnzipIsToldWithAllThatIsKnown) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  test::pack(folder / "whole.ipa", {{"file", std::string(5000, 'x')}});
  folder.write("truncated.ipa", test::contentsOf(folder / "whole.ipa").substr(0, 60));
  folder.write("text.ipa", "no archive at all");
  folder.write("empty.ipa", "");
  for (const char* const name : {"truncated.ipa", "text.ipa", "empty.ipa", "missing.ipa"}) {
    SCOPED_TRACE(name);
    const auto error = errorOf(folder / name);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "QVTFileSystemUtilsErrorDomain");
    EXPECT_EQ(error->code, -1);
    std::vector<std::string> keys;
    for (const auto& [key, value] : error->userInfo) keys.push_back(key);
    EXPECT_THAT(keys, UnorderedElementsAre("command", "arguments", "status", "stderr", "stdout",
                                           "archivePath", "temporaryPath"));
    const std::string archive = folder / name;
    const std::string target =
        temporary.path().string() + "/" +
        archive.substr(archive.rfind('/') + 1, archive.size() - archive.rfind('/') - 5) + "/";
    EXPECT_EQ(foundation::stringAt(error->userInfo, "archivePath"), archive);
    EXPECT_EQ(foundation::stringAt(error->userInfo, "temporaryPath"), target);
    EXPECT_THAT(*foundation::stringAt(error->userInfo, "command"), HasSubstr("/unzip"));
    EXPECT_EQ(*foundation::arrayAt(error->userInfo, "arguments"),
              (foundation::Array{"-qo", archive, "-d", target}));
    EXPECT_GT(*error->userInfo.at("status").integer(), 0);
    EXPECT_THAT(*foundation::stringAt(error->userInfo, "stderr") +
                    *foundation::stringAt(error->userInfo, "stdout"),
                HasSubstr(name));
  }
}

// More complaints than a pipe holds.
TEST(Inflate, ThousandsOfDamagedFilesEndLikeOne) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  const std::string name(240, 'n');
  const std::string deep = name + "/" + name + "/" + name + "/";
  std::vector<test::PackedFile> files;
  for (int i = 0; i < 1500; ++i) files.push_back({deep + name + std::to_string(i), "x"});
  test::pack(folder / "App.ipa", files);
  std::string bytes = test::contentsOf(folder / "App.ipa");
  // A file's only byte stands between its name and the next file's signature.
  for (auto at = bytes.find("xPK\3\4"); at != bytes.npos; at = bytes.find("xPK\3\4", at + 1)) {
    bytes[at] = 'y';
  }
  folder.write("App.ipa", bytes);
  const auto error = errorOf(folder / "App.ipa");
  ASSERT_TRUE(error);
  const std::string complaints = *foundation::stringAt(error->userInfo, "stderr");
  EXPECT_THAT(complaints.substr(0, 2000), HasSubstr("bad CRC"));
  EXPECT_GE(complaints.size(), 1u << 20);
}

TEST(Inflate, NeverTakesAnotherArchiveForOneThatCannotBeRead) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  fs::create_directory(folder / "folder");
  for (const char* const name : {"missing.zip", "folder.ZIP"}) {
    test::pack(folder / name, {{"which", "a neighbour"}});
  }
  for (const char* const name : {"missing", "folder"}) {
    const auto error = errorOf(folder / name);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->localizedDescription(), HasSubstr((folder / name).string()));
    EXPECT_FALSE(fs::exists(temporary.path() / name / "which"));
  }
}

TEST(Inflate, APipeIsRefusedInsteadOfWaitedFor) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe.ipa").c_str(), 0600), 0);
  for (const std::string& path : {(folder / "pipe.ipa").string(), std::string("/dev/null")}) {
    EXPECT_THAT(errorOf(path)->localizedDescription(),
                HasSubstr("cannot unpack a pipe or device, " + path));
  }
}

TEST(Inflate, AFolderThatCannotBeMadeIsToldBeforeAnyUnzip) {
  const test::TemporaryDirectoryScope temporary;
  const test::TemporaryFolder folder;
  test::pack(folder / "App.ipa", {{"file", "x"}});
  test::pack(folder / "...ipa", {{"file", "x"}});
  std::ofstream(temporary.path() / "App") << "in the way";
  EXPECT_THAT(errorOf(folder / "App.ipa")->localizedDescription(),
              HasSubstr((temporary.path() / "App").string()));
  EXPECT_THAT(errorOf(folder / "...ipa")->localizedDescription(), HasSubstr("...ipa"));
  EXPECT_FALSE(fs::exists(temporary.path().parent_path() / "file"));
}

}  // namespace

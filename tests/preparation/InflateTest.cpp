#include "preparation/Inflation.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"
#include "tests/preparation/TemporaryDirectory.h"

namespace {

using namespace std::string_literals;

Error errorOf(const fs::path& archive) {
  std::optional<Error> error;
  EXPECT_EQ(QVTFileSystemUtils::inflateToTemporaryPathArchive(archive, &error), std::nullopt);
  return error.value_or(Error{"none", 0, {}});
}

/// The files as "PATH=CONTENT" and the links as "PATH@", in one line.
std::string itemsIn(const fs::path& folder) {
  std::vector<std::string> items;
  for (const std::string& path : pathsBelow(folder)) {
    if (fs::is_symlink(folder / path)) {
      items.push_back(path + "@");
    } else if (!fs::is_directory(folder / path)) {
      items.push_back(path + "=" + contentsOf(folder / path));
    }
  }
  return foundation::joined(items, " ");
}
/// Makes the items of such a line; links lead to /tmp.
void makeItems(const fs::path& folder, const std::string& items) {
  for (const std::string& item : foundation::split(items, ' ')) {
    const auto end = item.find_first_of("=@");
    if (end == item.npos) continue;
    const fs::path path = writeFile(folder / item.substr(0, end), item.substr(end + 1));
    if (item[end] == '=') continue;
    fs::remove(path);
    fs::create_symlink("/tmp", path);
  }
}

TEST(Inflate, UnpacksTheNamedArchiveAndNoneThatItsNameWouldMatch) {
  // The neighbours are what `unzip` would take instead, were the name a pattern to it.
  const std::tuple<std::string, std::string, std::vector<const char*>> cases[] = {
      {"plain", "[1].ipa", {"1.ipa"}},
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
      {"\u6784\u5efa", "\u5e94\u7528[1].ipa", {"\u5e94\u75281.ipa"}},
      {"plain", "App", {"App.zip", "App.ZIP"}},
  };
  for (const auto& [parent, name, neighbours] : cases) {
    SCOPED_TRACE(parent + "/" + name);
    const TemporaryDirectory temporary;
    const TemporaryFolder folder;
    for (const char* const neighbour : neighbours) {
      pack(folder / parent / neighbour, {{"which", "a neighbour"}});
    }
    const auto archive = pack(folder / parent / name, {{"which", "the right one"}});
    const auto inflated = QVTFileSystemUtils::inflateToTemporaryPathArchive(archive);
    ASSERT_TRUE(inflated);
    EXPECT_EQ(*inflated, (temporary / archive.stem() / "").string());
    EXPECT_EQ(contentsOf(*inflated + "which"), "the right one");
  }
}

// In "Payload" only what the archive has brought counts, and nothing older goes but its own apps.
TEST(Inflate, OnlyAppsOfTheArchiveAreTaken) {
  const TemporaryFolder folder;
  pack(folder / "Example.ipa", {{"Payload/Example.app/new", "new"}, {"Other/x", "new"}});
  pack(folder / "empty.ipa", {{"Other/x", "new"}});
  // The directory's reader refuses it, and `unzip` does not.
  folder.write("trailing.ipa", contentsOf(folder / "Example.ipa") + "x");
  const struct {
    const char* name;
    const char* archive;
    const char* before;
    const char* after;
    const char* apps;
    const char* otherApps;
  } cases[] = {
      {"others' apps, files and links", "Example.ipa",
       "Other/x=old Payload/Aaa.app/x=old Payload/Old.app@ Payload/Zzz.app/link@ elsewhere@",
       "Other/x=new Payload/Aaa.app/x=old Payload/Example.app/new=new Payload/Old.app@ "
       "Payload/Zzz.app/link@ elsewhere@",
       "Example.app", "Aaa.app Old.app Zzz.app"},
      {"leftovers of its own app", "Example.ipa",
       "Payload/Example.app/evil.dylib=old Payload/Example.app/link@",
       "Other/x=new Payload/Example.app/new=new", "Example.app", ""},
      {"an archive without apps", "empty.ipa", "Payload/Example.app/x=old",
       "Other/x=new Payload/Example.app/x=old", "", "Example.app"},
      {"a directory that cannot be read", "trailing.ipa", "Payload/Example.app/x=old",
       "Other/x=new Payload/Example.app/new=new Payload/Example.app/x=old", "", "Example.app"},
      {"the same into a new folder", "trailing.ipa", "", "Other/x=new Payload/Example.app/new=new",
       "Example.app", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TemporaryFolder parent;
    const fs::path target = parent / fs::path(c.archive).stem();
    makeItems(target, c.before);
    const auto inflation = inflateArchive(folder / c.archive, {.parent = (parent / "").string()});
    ASSERT_TRUE(inflation) << inflation.error().description();
    EXPECT_EQ(itemsIn(target), c.after);
    EXPECT_EQ(foundation::joined(inflation->apps, " "), c.apps);
    auto others = inflation->otherApps;
    std::ranges::sort(others);
    EXPECT_EQ(foundation::joined(others, " "), c.otherApps);
  }
}

TEST(Inflate, LinksInItsWayAreLeftAloneAndRefused) {
  const TemporaryFolder folder;
  pack(folder / "A.ipa", {{"Payload/A.app/x", "new"}, {"Other/x", "new"}});
  pack(folder / "uncertain/A.ipa", {{"Payload/A.app/x", "new"}, {"Icon\r", "new"}});
  pack(folder / "linked/A.ipa", {{"Payload/A.app/x", "new"}, {"Other/link", "-> x"}});
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"A.ipa", "Payload", true},
      {"A.ipa", "Payload/A.app", true},
      {"A.ipa", "Other", true},
      {"A.ipa", "Other/x", true},
      {"A.ipa", "unrelated", false},
      {"uncertain/A.ipa", "unrelated", true},
      {"linked/A.ipa", "Other/link", false}};
  for (const auto& [archive, name, isRefused] : cases) {
    SCOPED_TRACE(name);
    const TemporaryFolder parent;
    const fs::path link = parent / "A" / name;
    fs::create_directory(parent / "outside");
    fs::create_directories(link.parent_path());
    fs::create_directory_symlink(parent / "outside", link);
    const auto inflation = inflateArchive(folder / archive, {.parent = (parent / "").string()});
    EXPECT_EQ(problemOf(inflation),
              isRefused ? "cannot unpack over " + link.string() + ": it is a link" : "");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::is_empty(parent / "outside"));
  }
}

TEST(Inflate, WhatIsTooLargeIsRefusedAndRemoved) {
  const TemporaryFolder folder;
  const auto zeros = pack(folder / "zeros.ipa", {{"Payload/A.app/x", std::string(500'000, '\0')}});
  // Declares only one byte of its 500,000, in the directory and before the data.
  std::string lie = contentsOf(zeros);
  for (auto at = lie.find("\x20\xa1\7\0"s); at != lie.npos; at = lie.find("\x20\xa1\7\0"s)) {
    lie.replace(at, 4, "\1\0\0\0"s);
  }
  const auto lying = folder.write("lie.ipa", lie);
  const struct {
    const char* name;
    fs::path archive;
    InflationLimits limits;
    bool isAllowed = false;
  } cases[] = {{"at the limits", zeros, {.most = 500'000, .always = 500'000}, true},
               {"in total", zeros, {.most = 499'999}},
               {"for its size", zeros, {.always = 499'999}},
               {"large, but not for its size", zeros, {.always = 1, .timesArchive = 1000}, true},
               {"on disk", lying, {.most = 400'000}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TemporaryDirectory temporary;
    const auto inflation = inflateArchive(c.archive, {.limits = c.limits});
    const std::string size = std::to_string(fs::file_size(c.archive));
    EXPECT_EQ(problemOf(inflation), c.isAllowed
                                        ? ""
                                        : "cannot unpack " + c.archive.string() + ": its " + size +
                                              " bytes hold 500000, more than is allowed");
    EXPECT_EQ(fs::exists(temporary / c.archive.stem() / "Payload"), c.isAllowed);
    TemporaryItems::releaseAll();
  }
}

TEST(Inflate, AFailedUnzipIsToldWithAllThatIsKnown) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  const auto whole = pack(folder / "whole.ipa", {{"file", std::string(5000, 'x')}});
  folder.write("truncated.ipa", contentsOf(whole).substr(0, 60));
  folder.write("empty.ipa", "");
  for (const std::string name : {"truncated", "empty", "missing"}) {
    SCOPED_TRACE(name);
    const std::string archive = folder / (name + ".ipa");
    const std::string target = temporary / name / "";
    auto error = errorOf(archive);
    EXPECT_EQ(error.domain, "QVTFileSystemUtilsErrorDomain");
    EXPECT_EQ(error.code, -1);
    const auto take = [&](const char* key) {
      auto node = error.userInfo.extract(key);
      return node ? std::move(node.mapped()) : Value();
    };
    EXPECT_THAT(*take("command").string(), EndsWith("/unzip"));
    EXPECT_EQ(take("arguments"), (Array{"-qo", archive, "-d", target}));
    EXPECT_GT(*take("status").integer(), 0);
    EXPECT_THAT(*take("stderr").string() + *take("stdout").string(), HasSubstr(name));
    EXPECT_EQ(error.userInfo, (Dictionary{{"archivePath", archive}, {"temporaryPath", target}}));
  }
}

// More complaints than a pipe holds.
TEST(Inflate, ThousandsOfDamagedFilesEndLikeOne) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  const std::string name(240, 'n');
  const std::string deep = name + "/" + name + "/" + name + "/" + name;
  std::vector<PackedFile> files;
  for (int i = 0; i < 1500; ++i) files.push_back({deep + std::to_string(i), "x"});
  std::string bytes = contentsOf(pack(folder / "App.ipa", files));
  // A file's only byte stands between its name and the next file's signature.
  for (auto at = bytes.find("xPK\3\4"); at != bytes.npos; at = bytes.find("xPK\3\4", at + 1)) {
    bytes[at] = 'y';
  }
  const auto error = errorOf(folder.write("App.ipa", bytes));
  const std::string complaints = stringAt(error.userInfo, "stderr").value_or("");
  EXPECT_THAT(complaints.substr(0, 2000), HasSubstr("bad CRC"));
  EXPECT_GE(complaints.size(), 1u << 20);
}

TEST(Inflate, WhatCannotBeUnpackedIsToldBeforeAnyUnzip) {
  const TemporaryDirectory temporary;
  const TemporaryFolder folder;
  const auto packed = [&](const char* name) { return pack(folder / name, {{"which", "other"}}); };
  // `unzip` would take a neighbour with the extension, and wait for a pipe's writer.
  packed("missing.zip");
  packed("folder.ZIP");
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe.ipa").c_str(), 0600), 0);
  std::ofstream(temporary / "App") << "in the way";
  const std::pair<fs::path, std::string> cases[] = {
      {folder / "missing", "cannot read archive " + (folder / "missing").string()},
      {folder / "folder", "cannot read archive " + (folder / "folder").string()},
      {folder / "pipe.ipa", "cannot unpack a pipe or device, " + (folder / "pipe.ipa").string()},
      {"/dev/null", "cannot unpack a pipe or device, /dev/null"},
      {packed("App.ipa"), (temporary / "App").string()},
      {packed("...ipa"), "cannot name a folder after " + (folder / "...ipa").string()}};
  for (const auto& [archive, problem] : cases) {
    EXPECT_THAT(errorOf(archive).localizedDescription(), HasSubstr(problem)) << archive;
  }
  EXPECT_THAT(pathsBelow(temporary.path()), Not(Contains(EndsWith("which"))));
  EXPECT_FALSE(fs::exists(temporary.path().parent_path() / "which"));
}

}  // namespace

#include "preparation/Inflation.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"
#include "tests/support/Test.h"

namespace {

using namespace std::string_literals;

/// The paths of all that is not a folder, in one line.
std::string itemsIn(const fs::path& folder) {
  auto paths = pathsBelow(folder);
  std::erase_if(paths, [&](const std::string& path) {
    return fs::is_directory(fs::symlink_status(folder / path));
  });
  return foundation::joined(paths, " ");
}
/// Makes such items; a "@" after a path makes it a link to nowhere.
void makeItems(const fs::path& folder, const std::string& paths) {
  for (const std::string& path : foundation::split(paths, ' ')) {
    fs::create_directories((folder / path).parent_path());
    if (path.ends_with('@')) {
      fs::create_symlink("nowhere", folder / path.substr(0, path.size() - 1));
    } else if (!path.empty()) {
      writeFile(folder / path, "");
    }
  }
}

// In "Payload" only what the archive has brought counts, and nothing older goes but its own apps.
TEST(Inflate, OnlyAppsOfTheArchiveAreTaken) {
  const TemporaryFolder folder;
  pack(folder / "Example.ipa", {{"Payload/Example.app/new", ""}, {"Other/new", ""}});
  pack(folder / "empty.ipa", {{"Other/new", ""}});
  // The directory's reader refuses it, and `unzip` does not.
  folder.write("trailing.ipa", contentsOf(folder / "Example.ipa") + "x");
  // What is there before and after; the archive's apps and, after a bar, others.
  const std::tuple<const char*, fs::path, const char*, const char*, std::string> cases[] = {
      {"others' apps, files and links", "Example.ipa",
       "Other/old Payload/Aaa.app/old Payload/Old.app@ Payload/Zzz.app/link@ elsewhere@",
       "Other/new Other/old Payload/Aaa.app/old Payload/Example.app/new Payload/Old.app "
       "Payload/Zzz.app/link elsewhere",
       "Example.app|Aaa.app Old.app Zzz.app"},
      {"leftovers of its own app", "Example.ipa",
       "Payload/Example.app/evil.dylib Payload/Example.app/link@",
       "Other/new Payload/Example.app/new", "Example.app|"},
      {"an archive without apps", "empty.ipa", "Payload/Example.app/old",
       "Other/new Payload/Example.app/old", "|Example.app"},
      {"a directory that cannot be read", "trailing.ipa", "Payload/Example.app/old",
       "Other/new Payload/Example.app/new Payload/Example.app/old", "|Example.app"},
      {"the same into a new folder", "trailing.ipa", "", "Other/new Payload/Example.app/new",
       "Example.app|"},
  };
  for (const auto& [name, archive, before, after, apps] : cases) {
    SCOPED_TRACE(name);
    const TemporaryFolder parent;
    makeItems(parent / archive.stem(), before);
    const auto inflation = inflateArchive(folder / archive, {.parent = (parent / "").string()});
    ASSERT_TRUE(inflation) << inflation.error().description();
    EXPECT_EQ(itemsIn(parent / archive.stem()), after);
    auto others = inflation->otherApps;
    std::ranges::sort(others);
    EXPECT_EQ(foundation::joined(inflation->apps, " ") + "|" + foundation::joined(others, " "),
              apps);
  }
}

TEST(Inflate, LinksInItsWayAreLeftAloneAndRefused) {
  const TemporaryFolder folder;
  pack(folder / "A.ipa", {{"Payload/A.app/x", ""}, {"Other/x", ""}});
  pack(folder / "uncertain/A.ipa", {{"Payload/A.app/x", ""}, {"Icon\r", ""}});
  pack(folder / "linked/A.ipa", {{"Payload/A.app/x", ""}, {"Other/link", "-> x"}});
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"A.ipa", "Payload", true},
      {"A.ipa", "Other/x", true},
      {"uncertain/A.ipa", "unrelated", true},
      {"linked/A.ipa", "Other/link", false}};
  for (const auto& [archive, name, isRefused] : cases) {
    SCOPED_TRACE(name);
    const TemporaryFolder parent;
    const fs::path link = parent / "A" / name;
    makeItems(parent / "A", name + std::string("@"));
    const auto inflation = inflateArchive(folder / archive, {.parent = (parent / "").string()});
    EXPECT_EQ(problemOf(inflation),
              isRefused ? "cannot unpack over " + link.string() + ": it is a link" : "");
    EXPECT_TRUE(fs::is_symlink(link));
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
  const std::tuple<const char*, fs::path, InflationLimits, bool> cases[] = {
      {"at the limits", zeros, {.most = 500'000, .always = 500'000}, true},
      {"in total", zeros, {.most = 499'999}, false},
      {"for its size", zeros, {.always = 499'999}, false},
      {"large, but not for its size", zeros, {.always = 1, .timesArchive = 1000}, true},
      {"on disk", lying, {.most = 400'000}, false}};
  for (const auto& [name, archive, limits, isAllowed] : cases) {
    SCOPED_TRACE(name);
    const TemporaryFolder temporary;
    const ScopedEnvironment variable("TMPDIR", temporary.path().c_str());
    const std::string problem = problemOf(inflateArchive(archive, {.limits = limits}));
    EXPECT_EQ(problem.empty(), isAllowed);
    EXPECT_THAT(problem, EndsWith(isAllowed ? "" : "bytes hold 500000, more than is allowed"));
    EXPECT_EQ(fs::exists(temporary / archive.stem() / "Payload"), isAllowed);
    TemporaryItems::releaseAll();
  }
}

TEST(Inflate, WhatCannotBeUnpackedIsToldBeforeAnyUnzip) {
  const TemporaryFolder temporary;
  const ScopedEnvironment variable("TMPDIR", temporary.path().c_str());
  const TemporaryFolder folder;
  const auto packed = [&](const char* name) { return pack(folder / name, {{"which", "other"}}); };
  // `unzip` would take a neighbour with the extension, and wait for a pipe's writer.
  packed("missing.zip");
  packed("folder.ZIP");
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe.ipa").c_str(), 0600), 0);
  std::ofstream(temporary / "App") << "in the way";
  const std::pair<fs::path, std::string> cases[] = {
      {folder / "missing", "cannot read archive "},
      {folder / "folder", "cannot read archive "},
      {folder / "pipe.ipa", "cannot unpack a pipe or device, "},
      {packed("App.ipa"), "cannot make folder "},
      {packed("...ipa"), "cannot name a folder after "}};
  for (const auto& [archive, problem] : cases) {
    EXPECT_THAT(problemOf(inflateArchive(archive)), StartsWith(problem)) << archive;
  }
  EXPECT_THAT(pathsBelow(temporary.path()), Not(Contains(EndsWith("which"))));
  EXPECT_FALSE(fs::exists(temporary.path().parent_path() / "which"));
}

}  // namespace

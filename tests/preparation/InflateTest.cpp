#include "preparation/Inflation.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"
#include "tests/support/Test.h"

namespace {

using namespace std::string_literals;

/// The rows of hostile archives have apps of others beside those of an archive that can be read.
TEST(Inflate, WithoutItsDirectoryOnlyTheAppsOfANewFolderAreTaken) {
  const TemporaryFolder folder;
  const auto archive = pack(folder / "Example.ipa", {{"Payload/Example.app/new", ""}});
  // The directory's reader refuses it, and `unzip` does not.
  writeFile(archive, contentsOf(archive) + "x");
  for (const bool isNew : {true, false}) {
    const auto inflation = inflateArchive(archive, {.parent = (folder / "").string()});
    ASSERT_TRUE(inflation) << inflation.error().description();
    EXPECT_EQ(isNew ? inflation->apps : inflation->otherApps, std::vector{"Example.app"s});
    EXPECT_THAT(isNew ? inflation->otherApps : inflation->apps, IsEmpty());
  }
}

/// The rows of hostile archives have links in the way of certain names.
TEST(Inflate, LinksAreLeftAloneWhereNamesAreUncertain) {
  // `unzip` changes one name, and any link may be in its way; the other archive replaces the link.
  for (const PackedFile& other : {PackedFile{"Icon\r", ""}, PackedFile{"link", "-> x"}}) {
    const TemporaryFolder folder;
    const auto archive = pack(folder / "A.ipa", {{"Payload/A.app/x", ""}, other});
    fs::create_directory(folder / "A");
    fs::create_symlink("nowhere", folder / "A/link");
    const auto inflation = inflateArchive(archive, {.parent = (folder / "").string()});
    const std::string refusal = "cannot unpack over " + (folder / "A/link: it is a link").string();
    EXPECT_EQ(problemOf(inflation), other.path == "link" ? "" : refusal);
    EXPECT_TRUE(fs::is_symlink(folder / "A/link"));
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
  ASSERT_EQ(::mkfifo((folder / "pipe.ipa").c_str(), 0600), 0);
  std::ofstream(temporary / "App") << "in the way";
  const std::pair<fs::path, std::string> cases[] = {
      {folder / "missing", "cannot read archive "},
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

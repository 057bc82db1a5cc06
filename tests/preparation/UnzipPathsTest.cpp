#include "preparation/UnzipPaths.h"
#include "tests/support/Test.h"

namespace {

enum class Host { unix, old, utf8 };

/// An archive with one empty file, which `unzip` takes. `unicode` is the name in an extra field,
/// made for "Payload/raw.app/x" or "Payload/\u00dc.app/x".
std::string archiveWith(const std::string& name, Host host, const std::string& unicode = "") {
  ZipItem item{.name = name, .compressedSize = 0, .uncompressedSize = 0};
  if (host == Host::old) item.madeBy = 0;
  if (host == Host::utf8) item.flags = 1 << 11;
  if (!unicode.empty()) {
    const std::uint32_t sum = name == "Payload/raw.app/x" ? 0x7dbc6c9 : 0x77360eeb;
    item.extra = zipField(0x7075, "\1" + littleEndian(sum, 4) + unicode);
  }
  return ZipImage({item}).bytes();
}

UnzipPaths pathsOf(const std::string& archive) {
  return UnzipPaths(*archive::ZipDirectory::read(bytesOf(archive)));
}

TEST(UnzipPaths, AreWhereTheRealUnzipPutsEntries) {
  const struct {
    const char* name;
    Host host = Host::unix;
    const char* unicode = "";
  } certain[] = {{"Payload/My App.app/x"},
                 {"./Payload//./B.app/../x"},
                 {"../../Payload/B.app/x"},
                 {"Payload/B.app/a\\b"},
                 {"Payload/\xc3\x9c.app/x"},
                 {"Payload/\xc3\x9c\xf0\x9f\x98\x80.app/x", Host::utf8},
                 {"Payload/raw.app/x", Host::unix, "Payload/\xc3\x9c\xf0\x9f\x98\x80.app/x"},
                 {"Payload/raw.app/x", Host::unix, "Payload/other.app/x"},
                 {"Payload/\xc3\x9c.app/x", Host::utf8, "Payload/other.app/x"},
                 {"Payload/\xc3\x9c.app/x", Host::unix, "Payload/other.app/x"}};
  for (const auto& c : certain) {
    const std::string bytes = archiveWith(c.name, c.host, c.unicode);
    const UnzipPaths paths = pathsOf(bytes);
    EXPECT_TRUE(paths.areCertain()) << c.name << " " << c.unicode;
    for (const char* const locale : {"C", "C.UTF-8"}) {
      SCOPED_TRACE(std::string(c.name) + " " + c.unicode + " in " + locale);
      const TemporaryFolder folder;
      // Its warnings make it end with 1.
      outputOf({"sh", "-c", "LC_ALL=$1 unzip -qo \"$2\" -d \"$3\" || [ $? = 1 ]", "sh", locale,
                folder.write("a.zip", bytes), folder / "out"});
      const auto unpacked = pathsBelow(folder / "out");
      ASSERT_GE(unpacked.size(), 3U);
      for (const std::string& path : unpacked) EXPECT_TRUE(paths.reach(path)) << path;
      EXPECT_TRUE(paths.apps().contains(fs::path(unpacked[1]).filename()));
    }
  }
}

TEST(UnzipPaths, AreUncertainWhereUnzipChangesNames) {
  const std::pair<std::string, Host> uncertain[] = {
      {"Payload/a;b.app/x;", Host::unix}, {"Payload/B.app;12", Host::unix},
      {"Payload/B\r.app/x", Host::unix},  {"Payload/\xff\xfe.app/x", Host::unix},
      {"Payload/B.app/..", Host::unix},   {"Payload/" + std::string(256, 'n'), Host::unix},
      {"Payload\\B.app\\x", Host::old},   {"Payload/\xc3\x9c.app/x", Host::old}};
  for (const auto& [name, host] : uncertain) {
    EXPECT_FALSE(pathsOf(archiveWith(name, host)).areCertain()) << name;
  }
  const auto wrong = archiveWith("Payload/raw.app/x", Host::unix, "Payload/\xc3.app/x");
  EXPECT_FALSE(pathsOf(wrong).areCertain()) << "a Unicode name that is not UTF-8";
}

TEST(UnzipPaths, ReachTheirFoldersAndReplaceALinkOnlyByLinks) {
  constexpr std::uint16_t link = 0120777;
  std::vector<ZipItem> items;
  for (const char* const name : {"link", "folder", "slash/", "twice"}) {
    items.push_back({.name = name, .unixMode = link});
  }
  for (const char* const name : {"Payload/A.app/x", "/Payload/B.app", "Payload/C.APP/x",
                                 "Other/D.app/x", "Payload/A.app-more/x", "folder/x", "twice"}) {
    items.push_back({.name = name});
  }
  const UnzipPaths paths = pathsOf(ZipImage(items).bytes());
  EXPECT_TRUE(paths.areCertain());
  EXPECT_THAT(paths.apps(), ElementsAre("A.app", "B.app"));
  for (const char* const reached : {"Payload", "Payload/A.app", "Payload/A.app/x", "Other"}) {
    EXPECT_TRUE(paths.reach(reached)) << reached;
    EXPECT_FALSE(paths.replaceLink(reached)) << reached;
  }
  for (const char* const other : {"", "Pay", "Payload/A", "Payload/A.app/y", "Payload/A.app/x/y"}) {
    EXPECT_FALSE(paths.reach(other)) << other;
  }
  EXPECT_TRUE(paths.replaceLink("link"));
  for (const char* const other : {"folder", "folder/x", "slash", "twice", "none"}) {
    EXPECT_FALSE(paths.replaceLink(other)) << other;
  }
}

}  // namespace

#include "preparation/ZipDirectory.h"
#include "tests/support/Test.h"

namespace {

using archive::ZipDirectory;

ZipDirectory readWhole(const std::string& bytes) {
  auto directory = ZipDirectory::read(keepForFuzzing("ZipDirectory", bytesOf(bytes)));
  EXPECT_TRUE(directory) << directory.error().localizedDescription();
  return directory ? *std::move(directory) : ZipDirectory();
}

TEST(ZipDirectory, ReadsWhatZipHasWritten) {
  const TemporaryFolder folder;
  const std::string bytes = contentsOf(pack(folder / "a.zip", {{"a/x", std::string(5000, 'x')}}));
  const auto directory = readWhole(bytes);
  ASSERT_THAT(directory.entries(), SizeIs(2));
  for (const auto& entry : directory.entries()) {
    const bool isFolder = entry.name == "a/";
    EXPECT_TRUE(isFolder || entry.name == "a/x") << entry.name;
    EXPECT_EQ(entry.unixMode.value() & 0170000U, isFolder ? 0040000U : 0100000U);
    EXPECT_EQ(bytes.substr(entry.headerOffset, 4), "PK\3\4");
    EXPECT_EQ(entry.uncompressedSize, isFolder ? 0U : 5000U);
    EXPECT_LT(entry.compressedSize, 100U);
    EXPECT_EQ(entry.method, isFolder ? 0 : 8);
  }
}

TEST(ZipDirectory, ReadsLargeNumbersAndUnicodePaths) {
  // The checksum of "raw".
  const std::string sum = littleEndian(0x1ab3db55, 4);
  const std::string large = littleEndian(7'000'000'000, 8) + littleEndian(2, 8);
  ZipImage image({{.name = "large",
                   .compressedSize = 0xffffffff,
                   .uncompressedSize = 0xffffffff,
                   .extra = zipField(0x5455, "time") + zipField(1, large) + "pad"},
                  {.name = "raw", .extra = zipField(0x7075, "\1" + sum + "\xc3\x9c")},
                  {.name = "other", .extra = zipField(0x7075, "\1" + sum + "\xc3\x9c")},
                  {.name = "\xc3\x9c", .madeBy = 0, .flags = 1 << 11}});
  image.comment = "PK\5 and more";
  for (const std::string& bytes : {image.bytes(), image.zip64()}) {
    const auto directory = readWhole(bytes);
    ASSERT_EQ(directory.entries().size(), 4U);
    const auto& entries = directory.entries();
    EXPECT_EQ(entries[0].uncompressedSize, 7'000'000'000U);
    EXPECT_EQ(entries[0].compressedSize, 2U);
    EXPECT_EQ(entries[1].unicodeName, "\xc3\x9c");
    EXPECT_EQ(entries[2].unicodeName, std::nullopt);
    EXPECT_TRUE(entries[3].isUTF8 && !entries[0].isUTF8);
    EXPECT_EQ(entries[3].unixMode, std::nullopt);
    EXPECT_EQ(directory.uncompressedSize(), 7'000'000'003U);
  }
  EXPECT_TRUE(readWhole(ZipImage({}).bytes()).entries().empty());
}

TEST(ZipDirectory, SumsStopAtTheLargestNumber) {
  const std::string huge = zipField(1, littleEndian(~std::uint64_t{0}, 8));
  const ZipImage image({{.name = "a", .uncompressedSize = 0xffffffff, .extra = huge},
                        {.name = "b", .uncompressedSize = 0xffffffff, .extra = huge}});
  EXPECT_EQ(readWhole(image.bytes()).uncompressedSize(), ~std::uint64_t{0});
}

/// One entry named "a" with something else changed: `size` bytes of its header at `offset`.
std::string withHeader(std::size_t offset, std::uint64_t value, int size,
                       const std::string& extra = "") {
  ZipImage image({{.name = "a", .extra = extra}});
  image.directory.replace(offset, static_cast<std::size_t>(size), littleEndian(value, size));
  return image.bytes();
}
std::string withExtra(const std::string& extra) {
  return ZipImage({{.name = "a", .extra = extra}}).bytes();
}
/// With a directory of other bytes.
std::string withDirectory(std::string bytes) {
  ZipImage image({{.name = "a"}});
  image.directory = std::move(bytes);
  return image.bytes();
}

TEST(ZipDirectory, RefusesDamagedArchives) {
  const ZipImage one({{.name = "a"}});  // 32 bytes of data, a directory of 47
  const std::string whole = one.bytes();
  const std::string zip64 = one.zip64();
  /// The end record in use beside Zip64 records, with other bytes.
  const auto oldEnd = [&](std::size_t offset, std::uint64_t value) {
    return std::string(zip64).replace(zip64.size() - 22 + offset, 4, littleEndian(value, 4));
  };
  const std::string several = "an archive in several parts";
  const std::string differs = "Zip64 end record at 79: differs from the end record";
  const std::string entry = "entry 0 of 1: ";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"nothing", "", "archive of 0 bytes: no end record"},
      {"no end record", std::string(70000, 'x'), "archive of 70000 bytes: no end record"},
      {"trailing bytes", whole + "x", "end record at 79: comment of 0 bytes, 1 follow"},
      {"comment too long", one.withEnd(20, 5, 2), "end record at 79: comment of 5 bytes, 0 follow"},
      {"a later disk", one.withEnd(4, 1, 2), "end record at 79: " + several},
      {"the directory on a later disk", one.withEnd(6, 1, 2), "end record at 79: " + several},
      {"entries on other disks", one.withEnd(8, 0, 2), "end record at 79: " + several},
      {"bytes in front", "x" + whole,
       "directory of 47 bytes at 32: does not end at the end records at 80"},
      {"directory after the end", one.withEnd(16, 0xfffffff0, 4),
       "directory of 47 bytes at 4294967280: does not end at the end records at 79"},
      {"directory too long", one.withEnd(12, 48, 4),
       "directory of 48 bytes at 32: does not end at the end records at 79"},
      {"too many entries", withDirectory(""), "directory of 0 bytes at 32: no room for 1 entries"},
      {"fewer entries than counted", withDirectory(one.directory.substr(0, 46)),
       entry + "size 47, 46 left"},
      {"more than counted", withDirectory(one.directory + "x"),
       "directory of 48 bytes at 32: 1 bytes after the last entry"},
      {"no entry", withHeader(0, 7, 4), entry + "signature 7"},
      {"name too long", withHeader(28, 0xffff, 2), entry + "size 65581, 47 left"},
      {"extra field too long", withHeader(30, 1, 2), entry + "size 48, 47 left"},
      {"entry's comment too long", withHeader(32, 1, 2), entry + "size 48, 47 left"},
      {"no name", withHeader(28, 0, 2, "1"), entry + "no name"},
      {"NUL in a name", ZipImage({{.name = std::string("a\0b", 3)}}).bytes(),
       entry + "name with a NUL"},
      {"another disk", withHeader(34, 2, 2), entry + "on disk 2"},
      {"header after the data", withHeader(42, 3, 4),
       entry + "header at 3, the directory is at 32"},
      {"header after everything", withHeader(42, 0xfffffffe, 4),
       entry + "header at 4294967294, the directory is at 32"},
      {"data in the directory", withHeader(20, 3, 4),
       entry + "data of 3 bytes, 2 before the directory"},
      {"extra field runs out", withExtra(littleEndian(0x00050001, 4)),
       entry + "extra field of 5 bytes, 0 left"},
      {"no Zip64 field", withHeader(24, 0xffffffff, 4),
       entry + "no Zip64 field for the numbers that it needs"},
      {"short Zip64 field", withHeader(24, 0xffffffff, 4, zipField(1, "1234567")),
       entry + "Zip64 field of 7 bytes is too short"},
      {"short Unicode path", withExtra(zipField(0x7075, "12345")),
       entry + "Unicode path field of 5 bytes is too short"},
      {"NUL in a Unicode path", withExtra(zipField(0x7075, std::string("\1sum.\0", 6))),
       entry + "Unicode path with a NUL"},
      {"two Unicode paths", withExtra(zipField(0x7075, "\1sum.x") + zipField(0x7075, "\1sum.y")),
       entry + "a second Unicode path"},
      {"no Zip64 record", one.zip64(0, 7, 4), "Zip64 end record at 79: not there"},
      {"Zip64 record outside", one.zip64(64, ~std::uint64_t{0}, 8),
       "Zip64 end record at 18446744073709551615: not there"},
      {"Zip64 record of wrong size", one.zip64(4, 45, 8),
       "Zip64 end record at 79: size 45, its locator is at 135"},
      {"Zip64 in several parts", one.zip64(72, 2, 4), "Zip64 end record at 79: " + several},
      {"Zip64 on a later disk", one.zip64(16, 1, 4), "Zip64 end record at 79: " + several},
      {"Zip64 counts that differ", one.zip64(24, 2, 8), differs},
      {"too many Zip64 entries", one.zip64(24, 2, 8).replace(79 + 32, 1, "\2"),
       "directory of 47 bytes at 32: no room for 2 entries"},
      // The end record may hold some of the numbers too, and they must be the same ones.
      {"another count in the end record", oldEnd(8, 0x00020002), differs},
      {"another size in the end record", oldEnd(12, 31), differs},
      {"another offset in the end record", oldEnd(16, 31), differs},
  };
  for (const auto& [name, bytes, complaint] : cases) {
    const Bytes input = keepForFuzzing("ZipDirectory", bytesOf(bytes));
    EXPECT_EQ(problemOf(ZipDirectory::read(input)), complaint) << name;
  }
}

}  // namespace

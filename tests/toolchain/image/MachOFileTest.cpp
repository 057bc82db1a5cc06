#include "tests/support/Test.h"
#include "tests/toolchain/image/SignableImage.h"
#include "toolchain/image/MachOFile.h"

namespace {

using toolchain::MachOFile;

std::string parsingProblem(const std::string& bytes) {
  return problemOf(MachOFile::parse(keepForFuzzing("SignedCode", bytesOf(bytes))));
}

TEST(MachOFileTest, DamageOfAThinFileIsNamed) {
  const auto at = [](std::size_t offset, std::uint32_t value) {
    std::string bytes = signableImage();
    poke(bytes, offset, value);
    return bytes;
  };
  const auto with = [](const std::string& command) {
    return signableImage(0x1000, [&](MachOImage& image) { image.command(command); });
  };
  const auto tooSmall = [&](std::uint32_t command) { return with(word(command) + word(8)); };
  const auto signedAt = [](std::uint32_t offset, std::uint32_t size) {
    return signableImage(0x1000, [&](MachOImage& image) { image.signature(offset, size); });
  };
  std::string namedAlike = signableImage();
  namedAlike.replace(kTextCommand + 8, 11, "__LINKEDIT", 11);
  struct Row {
    const char* name;
    std::string bytes;
    const char* complaint;
  };
  for (const Row& row : {
           Row{"empty", "", "not a Mach-O file: it has 0 bytes"},
           Row{"text", "text", "not a Mach-O file: it begins with 0x74786574"},
           Row{"big-endian", at(0, macho::MH_CIGAM_64), "big-endian code is not supported"},
           Row{"object file", at(12, macho::MH_OBJECT), "file type 1 cannot be signed"},
           Row{"header truncated", signableImage().substr(0, 31), "is truncated after 31 bytes"},
           Row{"commands run past", at(20, 0xffffff00), "run past the slice"},
           Row{"a command too many", at(16, 3),
               "load command 2 of 3: header runs past the commands"},
           Row{"a command too few", at(16, 1), "load commands end at 184, not at 256"},
           Row{"size 0", at(kTextCommand + 4, 0), "load command 0 of 2: cmdsize 0 is below 8"},
           Row{"odd size", at(kTextCommand + 4, 151), "cmdsize 151"},
           Row{"size past the end", at(kLinkEditCommand + 4, 80), "cmdsize 80 runs past"},
           Row{"segment too small", at(kLinkEditCommand + 4, 64), "cmdsize 64 is below 72"},
           Row{"symbols too small", tooSmall(macho::LC_SYMTAB), "cmdsize 8 is below 24"},
           Row{"build version too small", tooSmall(macho::LC_BUILD_VERSION), "8 is below 24"},
           Row{"minimum too small", tooSmall(macho::LC_VERSION_MIN_TVOS), "8 is below 16"},
           Row{"encryption too small", tooSmall(macho::LC_ENCRYPTION_INFO_64), "8 is below 20"},
           Row{"signature too small", tooSmall(macho::LC_CODE_SIGNATURE), "8 is below 16"},
           Row{"signature too large", at(kLinkEditCommand, macho::LC_CODE_SIGNATURE),
               "LC_CODE_SIGNATURE: cmdsize 72 is not 16"},
           Row{"too many sections", at(kTextCommand + 64, 0x40000000),
               "segment __TEXT: 1073741824 sections do not fit cmdsize 152"},
           Row{"segment outside", at(kLinkEditCommand + 48, 0x101),
               "segment __LINKEDIT: offset 16384 and size 257 lie outside the slice of 16640"},
           Row{"segment far outside", at(kLinkEditCommand + 44, 1), "segment __LINKEDIT: offset"},
           Row{"section outside", at(kTextCommand + 72 + 48, kImageSize),
               "section __TEXT,__text: offset 16640"},
           Row{"section over commands", at(kTextCommand + 72 + 48, 64),
               "section __TEXT,__text: offset 64 lies inside the load commands, which end at 256"},
           Row{"two of a name", namedAlike, "a second segment is named __LINKEDIT"},
           Row{"strings outside",
               with(word(macho::LC_SYMTAB) + word(24) + word(0) + word(0) + word(kImageSize) +
                    word(1)),
               "string table: offset 16640 and size 1 lie outside"},
           Row{"signature outside", signedAt(kImageSize, 1), "LC_CODE_SIGNATURE: offset 16640"},
           Row{"signature over commands", signedAt(kEndOfCommands + 15, 1),
               "LC_CODE_SIGNATURE: offset 271 lies inside the load commands"},
           Row{"two signatures",
               signableImage(0x1000,
                             [](MachOImage& image) {
                               image.signature(kLinkEditOffset, 16).signature(kLinkEditOffset, 16);
                             }),
               "a second LC_CODE_SIGNATURE"},
       }) {
    EXPECT_THAT(parsingProblem(row.bytes), HasSubstr(row.complaint)) << row.name;
  }
  EXPECT_EQ(parsingProblem(signableImage()), "");
  EXPECT_EQ(parsingProblem(signedAt(kEndOfCommands + 16, 1)), "");
}

TEST(MachOFileTest, DamageOfAUniversalTableIsNamed) {
  const FatSlice slice = FatSlice::of(MachOImage::arm64());
  const auto aligned = [&](std::uint32_t exponent) {
    std::string bytes = universalFile({slice});
    poke(bytes, 24, macho::byteSwapped(exponent));
    return bytes;
  };
  const auto withOne = [&](std::int32_t cpuType, std::uint32_t subtype,
                           std::optional<std::uint32_t> offset = {}) {
    return universalFile({{cpuType, static_cast<std::int32_t>(subtype), slice.bytes, offset}});
  };
  constexpr auto kARM64 = macho::CPU_TYPE_ARM64;
  struct Row {
    const char* name;
    std::string bytes;
    const char* complaint;
  };
  for (const Row& row : {
           Row{"header alone", universalFile({}).substr(0, 7), "universal header is truncated"},
           Row{"none", universalFile({}), "its universal header counts 0 slices"},
           Row{"a Java class", universalFile({}, 4, 45), "counts 45 slices"},
           Row{"table truncated", universalFile({{slice.cpuType, 0, "", 0U}}, 4, 20).substr(0, 28),
               "slice 1 of 20: its table entry runs past the end of the file"},
           Row{"outside", withOne(kARM64, 0, 1U << 20),
               "slice 0 of 1: offset 1048576 and size 32 lie outside the file of 64"},
           Row{"over the table", withOne(kARM64, 0, 8),
               "slice at offset 8 overlaps what begins at 0"},
           Row{"over another that comes later",
               universalFile({{kARM64, 0, slice.bytes, 64U}, {12, 9, slice.bytes, 56U}}),
               "slice at offset 64 overlaps what begins at 56"},
           Row{"twice", universalFile({slice, slice}), "two slices are named arm64"},
           Row{"not aligned", aligned(9), "arm64: offset 32 is not a multiple of 2^9"},
           Row{"impossibly aligned", aligned(32), "arm64: offset 32 is not a multiple of 2^32"},
           Row{"other subtype", withOne(kARM64, macho::CPU_SUBTYPE_ARM64E),
               "arm64e: the slice's own header names arm64"},
           Row{"other processor", withOne(macho::CPU_TYPE_X86_64, 3),
               "x86_64: the slice's own header names arm64"},
       }) {
    EXPECT_THAT(parsingProblem(row.bytes), HasSubstr(row.complaint)) << row.name;
  }
  EXPECT_EQ(parsingProblem(withOne(kARM64, 0x80000000)), "") << "capabilities may differ";
  const std::string wide = bigEndian(0xcafebabf, 4) + bigEndian(1, 4) +
                           bigEndian(static_cast<std::uint32_t>(kARM64), 4) + bigEndian(0, 4) +
                           bigEndian(48, 8) + bigEndian(32, 8) + bigEndian(4, 4) + bigEndian(0, 12);
  EXPECT_EQ(parsingProblem(wide + slice.bytes), "");
}

TEST(MachOFileTest, AFileIsTakenForCodeByItsFirstBytes) {
  for (const auto& [start, looksLikeIt] :
       std::vector<std::pair<std::string, bool>>{{word(macho::MH_MAGIC) + word(7), true},
                                                 {word(macho::MH_MAGIC_64) + word(7), true},
                                                 {word(macho::MH_CIGAM) + word(7), false},
                                                 {universalFile({}, 4, 1), true},
                                                 {universalFile({}, 4, 29), true},
                                                 {universalFile({}, 4, 30), false},
                                                 {universalFile({}, 4, 0), false},
                                                 {"#!/bin/sh", false},
                                                 {"\xcf", false}}) {
    EXPECT_EQ(toolchain::looksLikeMachO(bytesOf(start)), looksLikeIt) << hexOf(start);
  }
}

TEST(MachOFileTest, ArchitecturesWithoutANameAreNumbered) {
  EXPECT_EQ(toolchain::architectureName(macho::CPU_TYPE_ARM64, 0x80000002), "arm64e");
  EXPECT_EQ(toolchain::architectureName(macho::CPU_TYPE_ARM64, 0x8000004d),
            "cputype 16777228 subtype 77");
}

}  // namespace

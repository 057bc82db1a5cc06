#include "tests/support/Test.h"
#include "tests/toolchain/image/SignableImage.h"
#include "toolchain/image/MachOFile.h"

namespace {

using toolchain::MachOFile;

std::string parsingProblem(const std::string& bytes) {
  return problemOf(MachOFile::parse(keepForFuzzing("SignedCode", bytesOf(bytes))));
}

/// The rows of codesign have text, and what lies outside a truncated file.
TEST(MachOFileTest, DamageIsNamed) {
  const std::string good = signableImage();
  const auto at = [&](std::size_t offset, std::uint32_t value) {
    return poked(good, offset, value);
  };
  const auto with = [](std::uint32_t cmd, const std::vector<std::uint32_t>& numbers) {
    return signableImage({command(cmd, numbers)});
  };
  const auto signedAt = [&](std::uint32_t offset, std::uint32_t size) {
    return with(macho::LC_CODE_SIGNATURE, {offset, size});
  };
  const std::string signature = command(macho::LC_CODE_SIGNATURE, {kLinkEditOffset, 16});
  std::string namedAlike = good;
  namedAlike.replace(kTextCommand + 8, 11, "__LINKEDIT", 11);

  constexpr auto kType = macho::CPU_TYPE_ARM64;
  const std::string slice = machO({});
  const auto aligned = [&](std::uint32_t exponent) {
    return poked(universalFile({{slice}}), 24, macho::byteSwapped(exponent));
  };
  const auto universal = [&](Processor processor, std::optional<std::uint32_t> offset = {}) {
    return universalFile({{slice, processor, offset}});
  };
  for (const auto& [name, bytes, complaint] :
       std::vector<std::tuple<const char*, std::string, const char*>>{
           {"empty", "", "not a Mach-O file: it has 0 bytes"},
           {"big-endian", at(0, macho::MH_CIGAM_64), "big-endian code is not supported"},
           {"object file", at(12, macho::MH_OBJECT), "file type 1 cannot be signed"},
           {"header truncated", good.substr(0, 31), "is truncated after 31 bytes"},
           {"commands run past", at(20, 0xffffff00), "run past the slice"},
           {"a command too many", at(16, 3), "load command 2 of 3: header runs past the commands"},
           {"a command too few", at(16, 1), "load commands end at 184, not at 256"},
           {"size 0", at(kTextCommand + 4, 0), "load command 0 of 2: cmdsize 0 is below 8"},
           {"odd size", at(kTextCommand + 4, 151), "cmdsize 151"},
           {"size past the end", at(kLinkEditCommand + 4, 80), "cmdsize 80 runs past"},
           {"segment too small", at(kLinkEditCommand + 4, 64), "cmdsize 64 is below 72"},
           {"signature too small", with(macho::LC_CODE_SIGNATURE, {}), "8 is below 16"},
           {"signature too large", with(macho::LC_CODE_SIGNATURE, {kLinkEditOffset, 1, 0}),
            "LC_CODE_SIGNATURE: cmdsize 20 is not 16"},
           {"too many sections", at(kTextCommand + 64, 0x40000000),
            "segment __TEXT: 1073741824 sections do not fit cmdsize 152"},
           {"section outside", at(kTextCommand + 72 + 48, kImageSize),
            "section __TEXT,__text: offset 1280"},
           {"section over commands", at(kTextCommand + 72 + 48, 64),
            "section __TEXT,__text: offset 64 lies inside the load commands, which end at 256"},
           {"two of a name", namedAlike, "a second segment is named __LINKEDIT"},
           {"strings outside", with(macho::LC_SYMTAB, {0, 0, kImageSize, 1}),
            "string table: offset 1280 and size 1 lie outside"},
           {"signature outside", signedAt(kImageSize, 1), "LC_CODE_SIGNATURE: offset 1280"},
           {"signature over commands", signedAt(kEndOfCommands + 15, 1),
            "LC_CODE_SIGNATURE: offset 271 lies inside the load commands"},
           {"signature right after commands", signedAt(kEndOfCommands + 16, 1), ""},
           {"two signatures", signableImage({signature, signature}), "a second LC_CODE_SIGNATURE"},
           {"sound", good, ""},
           {"universal header alone", universalFile({}).substr(0, 7),
            "universal header is truncated"},
           {"no slices", universalFile({}), "its universal header counts 0 slices"},
           {"a Java class", universalFile({}, 4, 45), "counts 45 slices"},
           {"table truncated", universalFile({{"", kARM64, 0}}, 4, 20).substr(0, 28),
            "slice 1 of 20: its table entry runs past the end of the file"},
           {"slice over the table", universal(kARM64, 8),
            "slice at offset 8 overlaps what begins at 0"},
           {"slice over another that comes later",
            universalFile({{slice, kARM64, 64U}, {slice, kARMv7, 56U}}),
            "slice at offset 64 overlaps what begins at 56"},
           {"slice twice", universalFile({{slice}, {slice}}), "two slices are named arm64"},
           {"not aligned", aligned(9), "arm64: offset 32 is not a multiple of 2^9"},
           {"impossibly aligned", aligned(32), "arm64: offset 32 is not a multiple of 2^32"},
           {"other subtype", universal({kType, macho::CPU_SUBTYPE_ARM64E}),
            "arm64e: the slice's own header names arm64"},
           {"other processor", universal({macho::CPU_TYPE_X86_64, 3}),
            "x86_64: the slice's own header names arm64"},
           {"other capabilities", universal({kType, INT32_MIN}), ""},
           {"64-bit table",
            fromHex("cafebabf 00000001 0100000c 00000000 0000000000000030 0000000000000020"
                    "00000004 000000000000000000000000") +
                slice,
            ""},
       }) {
    const std::string problem = parsingProblem(bytes);
    EXPECT_THAT(problem, HasSubstr(complaint)) << name;
    EXPECT_EQ(problem.empty(), *complaint == '\0') << name;
  }
}

TEST(MachOFileTest, AFileIsTakenForCodeByItsFirstBytes) {
  EXPECT_FALSE(toolchain::looksLikeMachO(bytesOf("\xcf")));
  EXPECT_FALSE(toolchain::looksLikeMachO(bytesOf(words({macho::MH_CIGAM, 7}))));
  for (const std::uint32_t slices : {0, 1, 29, 30}) {
    const std::string start = universalFile({}, 4, slices);
    EXPECT_EQ(toolchain::looksLikeMachO(bytesOf(start)), slices > 0 && slices < 30) << slices;
  }
}

}  // namespace

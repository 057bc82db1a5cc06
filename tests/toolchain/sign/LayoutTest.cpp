#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "macho/core/Architectures.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/sign/private/SignatureBuilder.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::HasSubstr;
using toolchain::MachOFile;

std::string allocationProblem(const toolchain::AllocateOptions& options) {
  const auto done = toolchain::allocate(options);
  return done ? std::string() : done.error().localizedDescription();
}

toolchain::SliceRoom room(std::string_view architecture, std::uint32_t size) {
  return {std::string(architecture), size};
}

/// Sizes and offsets as llvm-otool reads them: command and field to value, slice after slice.
std::string loadCommands(const fs::path& file) {
  return outputOf({llvmTool("llvm-otool"), "-l", "-arch", "all", file});
}

TEST(Layout, RoomIsMadeInEverySliceAndTakenAwayAgain) {
  const TemporaryFolder folder;
  const fs::path unsignedFile = folder.write("code", machO(Kind::universal));
  fs::permissions(unsignedFile, fs::perms(0751));
  ASSERT_EQ(allocationProblem({.input = unsignedFile,
                               .output = folder / "roomy",
                               .rooms = {room("armv7", 4096), room("arm64", 8192)}}),
            "");
  EXPECT_EQ(fs::status(folder / "roomy").permissions(), fs::perms(0751));
  const std::string commands = loadCommands(folder / "roomy");
  EXPECT_THAT(commands, HasSubstr("datasize 4096"));
  EXPECT_THAT(commands, HasSubstr("datasize 8192"));
  // llvm-objdump refuses a file whose load commands do not fit it.
  outputOf({llvmTool("llvm-objdump"), "--macho", "--all-headers", "--arch=all", folder / "roomy"});
  const std::string fat =
      outputOf({llvmTool("llvm-objdump"), "--macho", "--universal-headers", folder / "roomy"});
  EXPECT_THAT(fat, HasSubstr("offset 16384"));
  EXPECT_THAT(fat, HasSubstr("align 2^14 (16384)"));
  const std::string roomy = contentsOf(folder / "roomy");
  const auto image = MachOFile::parse(foundation::bytesOf(roomy));
  ASSERT_TRUE(image);
  const auto& last = image->slices().back().file;
  EXPECT_EQ(last.offset + last.size, roomy.size());
  ASSERT_EQ(
      allocationProblem({.input = folder / "roomy", .output = folder / "bare", .remove = true}),
      "");
  EXPECT_THAT(loadCommands(folder / "bare"), testing::Not(HasSubstr("LC_CODE_SIGNATURE")));
  // Taking away what was added gives the linker's code again, slice by slice.
  for (const char* architecture : {"armv7", "arm64"}) {
    for (const char* name : {"code", "bare"}) {
      outputOf({llvmTool("llvm-lipo"), "-thin", architecture, folder / name, "-output",
                folder / (std::string(name) + architecture)});
    }
    std::string before = contentsOf(folder / (std::string("code") + architecture));
    const std::string after = contentsOf(folder / (std::string("bare") + architecture));
    before.resize((before.size() + 15) / 16 * 16);
    EXPECT_LE(before.size() - after.size(), 15U);
    EXPECT_EQ(before.substr(0x1000, after.size() - 0x1000), after.substr(0x1000));
  }
}

TEST(Layout, EverySliceMustBeNamedWithASizeThatFits) {
  struct Case {
    std::string name;
    std::vector<toolchain::SliceRoom> rooms;
    std::string complaint;
  };
  const TemporaryFolder folder;
  const fs::path file = folder.write("code", machO(Kind::universal));
  for (const Case& c : {
           Case{"one is missing", {room("arm64", 16)}, "no size was given for slice armv7"},
           Case{"no multiple", {room("arm64", 8), room("armv7", 16)}, "size 8 is not a multiple"},
           Case{"another", {room("x86_64", 16)}, "no slice is named x86_64"},
       }) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(allocationProblem({.input = file, .output = folder / "out", .rooms = c.rooms}),
                HasSubstr(c.complaint));
    EXPECT_FALSE(fs::exists(folder / "out"));
  }
}

/// A thin image with __TEXT, another segment and __LINKEDIT, whose numbers a test may bend.
struct Built {
  std::string bytes;
  std::size_t textCommand = 32;
  std::size_t linkEditCommand = 32 + 72 + 80;
};

constexpr std::uint64_t kLinkEditOffset = 0x4000;
constexpr std::uint64_t kSize = 0x4100;

void put64(std::string& bytes, std::size_t at, std::uint64_t value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

std::string segment64(std::string_view name, std::uint64_t offset, std::uint64_t size,
                      std::uint32_t sections) {
  macho::segment_command_64 record{};
  record.cmd = macho::LC_SEGMENT_64;
  record.cmdsize = static_cast<std::uint32_t>(sizeof record + sections * sizeof(macho::section_64));
  name.copy(record.segname, sizeof record.segname);
  record.fileoff = offset;
  record.filesize = size;
  record.vmsize = size;
  record.nsects = sections;
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

/// `firstSection`: where the code begins; `cryptid` not 0 adds an encryption command; each of the
/// `signatures` adds an LC_CODE_SIGNATURE.
Built build(std::uint32_t firstSection = 0x1000, std::uint32_t cryptid = 0,
            const std::vector<toolchain::Extent>& signatures = {}) {
  macho::section_64 section{};
  std::memcpy(section.sectname, "__text", 6);
  std::memcpy(section.segname, "__TEXT", 6);
  section.offset = firstSection;
  section.size = 16;
  std::string text = segment64("__TEXT", 0, kLinkEditOffset, 1);
  text.append(reinterpret_cast<const char*>(&section), sizeof section);
  MachOImage image = MachOImage::arm64();
  image.command(text).command(segment64("__LINKEDIT", kLinkEditOffset, kSize - kLinkEditOffset, 0));
  if (cryptid != 0) image.encryption(cryptid);
  for (const auto& [offset, size] : signatures) {
    image.command(word(macho::LC_CODE_SIGNATURE) + word(16) +
                  word(static_cast<std::uint32_t>(offset)) +
                  word(static_cast<std::uint32_t>(size)));
  }
  Built built{image.bytes()};
  built.bytes.resize(kSize);
  return built;
}

TEST(Layout, CodeWithoutAPlaceForItsSignatureIsRefused) {
  struct Case {
    std::string name;
    std::string bytes;
    std::string complaint;
    std::uint64_t room = 4096;
  };
  const auto bent = [](Built built, std::size_t at, std::uint64_t value) {
    put64(built.bytes, at, value);
    return built.bytes;
  };
  const Built good = build();
  const std::size_t linkEdit = good.linkEditCommand;
  const std::uint32_t endOfCommands = static_cast<std::uint32_t>(linkEdit) + 72;
  std::string unnamed = good.bytes;
  unnamed[linkEdit + 8 + 2] = 'X';
  std::string withoutText = good.bytes;
  withoutText[good.textCommand + 8 + 2] = 'X';
  std::string behind = good.bytes + std::string(16, '\1');
  for (const Case& c : {
           Case{"no room", build(endOfCommands + 15).bytes,
                "not enough room in load commands to add LC_CODE_SIGNATURE"},
           Case{"just room", build(endOfCommands + 16).bytes, ""},
           Case{"encrypted", build(0x1000, 1).bytes, "the code is encrypted (cryptid 1)"},
           Case{"no __TEXT", withoutText, "no __TEXT segment"},
           Case{"no __LINKEDIT", unnamed, "no __LINKEDIT segment"},
           Case{"old signature before __LINKEDIT",
                build(0x1000, 0, {{kLinkEditOffset - 16, 0x110}}).bytes,
                "the old signature at 16368 does not lie in __LINKEDIT"},
           Case{"old signature ends early", build(0x1000, 0, {{kLinkEditOffset, 0xf0}}).bytes,
                "the old signature ends at 16624, not with the slice at 16640"},
           Case{"beyond 32 bits", good.bytes, "too large: the signature would end at 4294967312",
                0x100000010 - kSize},
           Case{"__LINKEDIT is not last", bent(good, linkEdit + 40, kLinkEditOffset - 1),
                "__LINKEDIT at 16383 is not last"},
           Case{"bytes behind", behind, "bytes follow __LINKEDIT"},
           Case{"a few zeros behind", good.bytes + std::string(15, '\0'), ""},
           Case{"many zeros behind", good.bytes + std::string(16, '\0'), "bytes follow __LINKEDIT"},
       }) {
    SCOPED_TRACE(c.name);
    const auto image = MachOFile::parse(foundation::bytesOf(c.bytes));
    ASSERT_TRUE(image) << image.error().localizedDescription();
    const auto layout = toolchain::layOut(*image, image->slices().front(), c.room);
    EXPECT_THAT(layout ? "" : layout.error().localizedDescription(), HasSubstr(c.complaint));
    EXPECT_EQ(layout.ok(), c.complaint.empty());
  }
}

TEST(Layout, SegmentsLieInOrderWithLinkEditLast) {
  const auto image =
      [](const std::vector<std::tuple<const char*, std::uint64_t, std::uint64_t>>& segments,
         std::uint32_t signature = 0x4000) {
        MachOImage made = MachOImage::arm64();
        for (const auto& [name, offset, size] : segments) {
          made.command(segment64(name, offset, size, 0));
        }
        made.command(word(macho::LC_CODE_SIGNATURE) + word(16) + word(signature) + word(0x100));
        std::string bytes = made.bytes();
        bytes.resize(kSize);
        return bytes;
      };
  struct Case {
    const char* name;
    std::string bytes;
    const char* complaint;
  };
  for (const Case& c : {
           Case{"good",
                image({{"__PAGEZERO", 0, 0},
                       {"__TEXT", 0, 0x2000},
                       {"__DATA", 0x2000, 0x1000},
                       {"__LINKEDIT", 0x4000, 0x100},
                       {"__BSS", 0x1000, 0}}),
                ""},
           Case{"overlap",
                image({{"__TEXT", 0, 0x2001}, {"__DATA", 0x2000, 16}, {"__LINKEDIT", 0x4000, 256}}),
                "segment __DATA at 8192 begins before the end of __TEXT at 8193"},
           Case{"order",
                image({{"__DATA", 0x2000, 16}, {"__TEXT", 0, 0x2000}, {"__LINKEDIT", 0x4000, 256}}),
                "segment __TEXT at 0 begins before the end of __DATA at 8208"},
           Case{"__LINKEDIT is not last",
                image({{"__TEXT", 0, 0x2000}, {"__LINKEDIT", 0x3000, 16}, {"__X", 0x4000, 256}}),
                "the last segment is __X, not __LINKEDIT"},
           Case{"none", image({}), "the last segment is none"},
           Case{"signature before __LINKEDIT",
                image({{"__TEXT", 0, 0x2000}, {"__LINKEDIT", 0x4000, 256}}, 0x3fff),
                "the signature at 16383 of 256 bytes does not lie in __LINKEDIT"},
           Case{"signature longer than __LINKEDIT",
                image({{"__TEXT", 0, 0x2000}, {"__LINKEDIT", 0x4000, 255}}),
                "does not lie in __LINKEDIT"},
       }) {
    const auto parsed = MachOFile::parse(foundation::bytesOf(c.bytes));
    ASSERT_TRUE(parsed) << c.name << parsed.error().localizedDescription();
    const auto checked = toolchain::checkSegments(parsed->slices().front());
    EXPECT_THAT(checked ? "" : checked.error().localizedDescription(), HasSubstr(c.complaint));
    EXPECT_EQ(checked.ok(), !*c.complaint) << c.name;
  }
}

TEST(MachOFile, DamageIsNamed) {
  struct Case {
    std::string name;
    std::function<void(std::string&)> damage;
    std::string complaint;
  };
  const Built good = build();
  const std::size_t text = good.textCommand;
  const std::size_t linkEdit = good.linkEditCommand;
  const auto at = [](std::size_t offset, std::uint32_t value) {
    return [=](std::string& bytes) { poke(bytes, offset, value); };
  };
  const auto cut = [](std::size_t size) { return [=](std::string& bytes) { bytes.resize(size); }; };
  for (const Case& c : {
           Case{"big-endian", at(0, macho::MH_CIGAM_64), "big-endian code"},
           Case{"object file", at(12, macho::MH_OBJECT), "file type 1 cannot be signed"},
           Case{"header cut off", cut(31), "header is truncated after 31 bytes"},
           Case{"commands run past", at(20, 0xffffff00), "run past the slice"},
           Case{"a command too many", at(16, 3), "load command 2 of 3: header runs past"},
           Case{"a command too few", at(16, 1), "load commands end at 184, not at 256"},
           Case{"size 0", at(text + 4, 0), "load command 0 of 2: cmdsize 0 is below 8"},
           Case{"odd size", at(text + 4, 151), "cmdsize 151"},
           Case{"size past the end", at(linkEdit + 4, 80), "cmdsize 80 runs past"},
           Case{"too small for its kind", at(linkEdit + 4, 64), "cmdsize 64 is below 72"},
           Case{"too many sections", at(text + 64, 0x40000000), "1073741824 sections do not fit"},
           Case{"segment outside", at(linkEdit + 48, 0x101), "segment __LINKEDIT: offset 16384"},
           Case{"segment far outside", at(linkEdit + 44, 1), "segment __LINKEDIT"},
           Case{"section outside", at(text + 72 + 48, 0x4100), "section __TEXT,__text: offset"},
           Case{"section over commands", at(text + 72 + 48, 64), "inside the load commands"},
           Case{"two of a name", [&](std::string& b) { b.replace(text + 8, 11, "__LINKEDIT", 11); },
                "a second segment is named __LINKEDIT"},
           Case{"two signatures",
                [](std::string& b) {
                  b = build(0x1000, 0, {{kLinkEditOffset, 16}, {kLinkEditOffset, 16}}).bytes;
                },
                "a second LC_CODE_SIGNATURE"},
           Case{"signature outside", at(linkEdit, macho::LC_CODE_SIGNATURE),
                "cmdsize 72 is not 16"},
       }) {
    SCOPED_TRACE(c.name);
    std::string bytes = good.bytes;
    c.damage(bytes);
    const auto image = MachOFile::parse(foundation::bytesOf(bytes));
    ASSERT_FALSE(image);
    EXPECT_THAT(image.error().localizedDescription(), HasSubstr(c.complaint));
  }
  EXPECT_TRUE(MachOFile::parse(foundation::bytesOf(good.bytes)));
}

/// Which digests and which pages a slice gets, by its system and processor.
TEST(MachOFile, SystemAndProcessorDecideAboutDigestsAndPages) {
  using toolchain::HashType;
  using toolchain::Platform;
  constexpr auto kARM64 = macho::CPU_TYPE_ARM64;
  constexpr std::uint32_t kNoCommand = 0;
  struct Case {
    const char* name;
    std::int32_t cpuType;
    /// An LC_VERSION_MIN_* command, or LC_BUILD_VERSION for `platform`.
    std::uint32_t command;
    Platform platform;
    std::uint32_t minimum;
    bool withSHA1;
    int pageShift;
  };
  constexpr auto kBuild = macho::LC_BUILD_VERSION;
  for (const Case& c : {
           Case{"no command", kARM64, kNoCommand, {}, 0, false, 14},
           Case{"iOS 10.3", kARM64, macho::LC_VERSION_MIN_IPHONEOS, {}, 0xa0300, true, 14},
           Case{"iOS 11", kARM64, macho::LC_VERSION_MIN_IPHONEOS, {}, 0xb0000, false, 14},
           Case{"iOS 10.3 by build", kARM64, kBuild, Platform::iOS, 0xa0300, true, 14},
           Case{"iOS 11 by build", kARM64, kBuild, Platform::iOS, 0xb0000, false, 14},
           Case{"32-bit", macho::CPU_TYPE_ARM, kBuild, Platform::iOS, 0xb0000, false, 12},
           Case{"tvOS 10.9", kARM64, macho::LC_VERSION_MIN_TVOS, {}, 0xa0900, true, 12},
           Case{"tvOS 11", kARM64, kBuild, Platform::tvOS, 0xb0000, false, 12},
           Case{"watchOS 11", macho::CPU_TYPE_ARM64_32, kBuild, Platform::watchOS, 0xb0000, true,
                14},
           Case{"watchOS 12", kARM64, kBuild, Platform::watchOS, 0xc0000, false, 14},
           Case{"macOS 10.11.3",
                macho::CPU_TYPE_X86_64,
                macho::LC_VERSION_MIN_MACOSX,
                {},
                0xa0b03,
                true,
                12},
           Case{"macOS 10.11.4", macho::CPU_TYPE_X86_64, kBuild, Platform::macOS, 0xa0b04, false,
                12},
           Case{"visionOS 1", kARM64, kBuild, Platform::visionOS, 0x10000, false, 14},
       }) {
    SCOPED_TRACE(c.name);
    MachOImage image(c.cpuType, 0);
    if (c.command == kBuild) {
      image.buildVersion(static_cast<std::uint32_t>(c.platform), c.minimum, c.minimum);
    } else if (c.command != kNoCommand) {
      image.versionMin(c.command, c.minimum, c.minimum);
    }
    const std::string bytes = image.bytes();
    const auto parsed = MachOFile::parse(foundation::bytesOf(bytes));
    ASSERT_TRUE(parsed) << parsed.error().localizedDescription();
    const auto types = toolchain::hashTypesFor(*parsed);
    EXPECT_EQ(types.front() == HashType::sha1, c.withSHA1);
    EXPECT_EQ(types.back(), HashType::sha256);
    EXPECT_EQ(toolchain::pageShiftFor(parsed->slices()[0]), c.pageShift);
  }
}

TEST(MachOFile, ArchitecturesAreNamed) {
  EXPECT_EQ(toolchain::architectureName(macho::CPU_TYPE_ARM64, 1), "arm64v8");
  EXPECT_EQ(toolchain::architectureName(macho::CPU_TYPE_ARM, 13), "armv8");
  EXPECT_EQ(toolchain::architectureName(macho::CPU_TYPE_ARM64, 0x8000004d),
            "cputype 16777228 subtype 77");
  EXPECT_EQ(macho::architectureNamed("arm64_32")->cpuSubtype, 1U);
  EXPECT_FALSE(macho::architectureNamed("arm65"));
}

TEST(MachOFile, UniversalTableIsChecked) {
  const MachOImage thin = MachOImage::arm64();
  const FatSlice slice = FatSlice::of(thin);
  std::string misaligned = universalFile({slice});
  poke(misaligned, 24, macho::byteSwapped(std::uint32_t{9}));
  struct Case {
    std::string name;
    std::string bytes;
    std::string complaint;
  };
  for (const Case& c : {
           Case{"none", universalFile({}), "counts 0 slices"},
           Case{"table cut off", universalFile({{slice.cpuType, 0, "", 0U}}, 4, 20).substr(0, 28),
                "slice 1 of 20: its table entry runs past"},
           Case{"outside", universalFile({{slice.cpuType, 0, slice.bytes, 1U << 20}}),
                "slice 0 of 1: offset 1048576"},
           Case{"over the table", universalFile({{slice.cpuType, 0, slice.bytes, 8U}}), "overlaps"},
           Case{"twice", universalFile({slice, slice}), "two slices are named arm64"},
           Case{"not aligned", misaligned, "arm64: offset 32 is not a multiple of 2^9"},
           Case{"other subtype",
                universalFile({{slice.cpuType, macho::CPU_SUBTYPE_ARM64E, slice.bytes, {}}}),
                "arm64e: the slice's own header names arm64"},
           Case{"other processor",
                universalFile({{macho::CPU_TYPE_X86_64, 3, slice.bytes, std::nullopt}}),
                "x86_64: the slice's own header names arm64"},
       }) {
    SCOPED_TRACE(c.name);
    const auto image = MachOFile::parse(foundation::bytesOf(c.bytes));
    ASSERT_FALSE(image);
    EXPECT_THAT(image.error().localizedDescription(), HasSubstr(c.complaint));
  }
}

}  // namespace

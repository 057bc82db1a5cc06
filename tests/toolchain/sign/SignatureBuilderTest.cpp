#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "toolchain/sign/private/SignatureBuilder.h"

namespace {

using toolchain::HashType;

/// Which digests and which pages a slice gets, by its system and processor.
TEST(SignatureBuilderTest, SystemAndProcessorDecideAboutDigestsAndPages) {
  constexpr auto kARM64 = macho::CPU_TYPE_ARM64;
  constexpr auto kX86 = macho::CPU_TYPE_X86_64;
  constexpr std::uint32_t kTVOS = 3;
  constexpr std::uint32_t kVisionOS = 11;
  using macho::PLATFORM_IOS;
  struct Row {
    const char* name;
    std::int32_t cpuType;
    /// An LC_VERSION_MIN_* command or, if small, the platform of an LC_BUILD_VERSION; 0 for none.
    std::uint32_t system;
    std::uint32_t minimum;
    bool withSHA1;
    int pageShift;
  };
  for (const Row& row : {
           Row{"no command", kARM64, 0, 0, false, 14},
           Row{"iOS 10.3", kARM64, macho::LC_VERSION_MIN_IPHONEOS, 0xa0300, true, 14},
           Row{"iOS 11", kARM64, macho::LC_VERSION_MIN_IPHONEOS, 0xb0000, false, 14},
           Row{"iOS 10.3 by build", kARM64, PLATFORM_IOS, 0xa0300, true, 14},
           Row{"iOS 11 by build", kARM64, PLATFORM_IOS, 0xb0000, false, 14},
           Row{"32-bit", macho::CPU_TYPE_ARM, PLATFORM_IOS, 0xb0000, false, 12},
           Row{"tvOS 10.9", kARM64, macho::LC_VERSION_MIN_TVOS, 0xa0900, true, 12},
           Row{"tvOS 11", kARM64, kTVOS, 0xb0000, false, 12},
           Row{"watchOS 11", macho::CPU_TYPE_ARM64_32, macho::PLATFORM_WATCHOS, 0xb0000, true, 14},
           Row{"watchOS 12", kARM64, macho::PLATFORM_WATCHOS, 0xc0000, false, 14},
           Row{"macOS 10.11.3", kX86, macho::LC_VERSION_MIN_MACOSX, 0xa0b03, true, 12},
           Row{"macOS 10.11.4", kX86, macho::PLATFORM_MACOS, 0xa0b04, false, 12},
           Row{"visionOS 1", kARM64, kVisionOS, 0x10000, false, 14},
       }) {
    MachOImage image(row.cpuType, 0);
    if (row.system > kVisionOS) {
      image.command(row.system, {row.minimum, row.minimum});
    } else if (row.system != 0) {
      image.command(macho::LC_BUILD_VERSION, {row.system, row.minimum, row.minimum, 0});
    }
    const std::string bytes = image.bytes();
    const auto parsed = toolchain::MachOFile::parse(bytesOf(bytes));
    ASSERT_TRUE(parsed) << problemOf(parsed);
    const auto types = toolchain::hashTypesFor(*parsed);
    EXPECT_EQ(types.front() == HashType::sha1, row.withSHA1) << row.name;
    EXPECT_EQ(types.back(), HashType::sha256) << row.name;
    EXPECT_EQ(toolchain::pageShiftFor(parsed->slices()[0]), row.pageShift) << row.name;
  }
}

}  // namespace

#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "toolchain/sign/private/SignatureBuilder.h"

namespace {

/// What no linker at hand can make; the rows of codesign have the systems that it knows.
TEST(SignatureBuilderTest, OnlyOldSystemsGetSHA1) {
  constexpr std::uint32_t kVisionOS = 11;
  const auto builtFor = [](std::uint32_t platform) {
    return machO({command(macho::LC_BUILD_VERSION, {platform, 0xa0300, 0xa0300, 0})});
  };
  for (const auto& [bytes, count] : {std::pair{machO({}), 1U}, std::pair{builtFor(kVisionOS), 1U},
                                     std::pair{builtFor(macho::PLATFORM_IOS), 2U}}) {
    const auto parsed = toolchain::MachOFile::parse(bytesOf(bytes));
    ASSERT_TRUE(parsed) << problemOf(parsed);
    EXPECT_EQ(toolchain::hashTypesFor(*parsed).size(), count);
  }
}

}  // namespace

#include "macho/core/Architectures.h"
#include "tests/support/Test.h"

namespace {

TEST(ArchitecturesTest, AreNamedByProcessorAndSubtype) {
  const auto* const arm64e = macho::architectureNamed("arm64e");
  ASSERT_TRUE(arm64e);
  EXPECT_EQ(arm64e->cpuType, 0x0100000c);
  EXPECT_EQ(arm64e->cpuSubtype, 2U);
  EXPECT_EQ(macho::architectureOf(0x0100000c, 0x80000002), arm64e) << "capabilities";
  EXPECT_STREQ(macho::architectureOf(0x0200000c, 0)->name, "arm64_32") << "either subtype";
  EXPECT_FALSE(macho::architectureOf(0x0100000c, 77));
  EXPECT_FALSE(macho::architectureNamed("arm65"));
}

}  // namespace

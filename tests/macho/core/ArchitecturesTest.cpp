#include "macho/core/Architectures.h"
#include "tests/support/Test.h"

namespace {

TEST(ArchitecturesTest, AreNamedByProcessorAndSubtype) {
  for (const auto& [name, cpuType, cpuSubtype] :
       std::vector<std::tuple<const char*, std::int32_t, std::uint32_t>>{
           {"armv7s", 12, 11},
           {"armv7k", 12, 12},
           {"armv7", 12, 9},
           {"armv8", 12, 13},
           {"arm64", 0x0100000c, 0},
           {"arm64v8", 0x0100000c, 1},
           {"arm64e", 0x0100000c, 2},
           {"arm64_32", 0x0200000c, 1},
           {"x86_64", 0x01000007, 3},
           {"i386", 7, 3}}) {
    const auto* const named = macho::architectureNamed(name);
    ASSERT_TRUE(named) << name;
    EXPECT_EQ(named->cpuType, cpuType) << name;
    EXPECT_EQ(named->cpuSubtype, cpuSubtype) << name;
    EXPECT_EQ(macho::architectureOf(cpuType, cpuSubtype | 0x80000000), named) << name;
  }
  EXPECT_STREQ(macho::architectureOf(0x0200000c, 0)->name, "arm64_32") << "either subtype";
  EXPECT_FALSE(macho::architectureOf(0x0100000c, 77));
  EXPECT_FALSE(macho::architectureNamed("arm65"));
}

}  // namespace

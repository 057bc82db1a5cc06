#include "macho/core/Architectures.h"
#include "macho/core/Definitions.h"
#include "tests/support/Test.h"

namespace {

TEST(ArchitecturesTest, AreNamedByProcessorAndSubtype) {
  struct Row {
    const char* name;
    std::int32_t cpuType;
    std::uint32_t cpuSubtype;
  };
  for (const auto& [name, cpuType, cpuSubtype] :
       {Row{"armv7s", 12, 11}, Row{"armv7k", 12, 12}, Row{"armv7", 12, 9}, Row{"armv8", 12, 13},
        Row{"arm64", 0x0100000c, 0}, Row{"arm64v8", 0x0100000c, 1}, Row{"arm64e", 0x0100000c, 2},
        Row{"arm64_32", 0x0200000c, 1}, Row{"x86_64", 0x01000007, 3}, Row{"i386", 7, 3}}) {
    SCOPED_TRACE(name);
    const auto* named = macho::architectureNamed(name);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->cpuType, cpuType);
    EXPECT_EQ(named->cpuSubtype, cpuSubtype);
    EXPECT_EQ(macho::architectureOf(cpuType, cpuSubtype), named);
    EXPECT_EQ(macho::architectureOf(cpuType, cpuSubtype | 0x80000000), named) << "capabilities";
  }
  EXPECT_STREQ(macho::architectureOf(0x0200000c, 0)->name, "arm64_32") << "either subtype";
  EXPECT_FALSE(macho::architectureOf(0x0100000c, 77));
  EXPECT_FALSE(macho::architectureOf(-1, 0));
  EXPECT_FALSE(macho::architectureNamed("arm65"));
}

}  // namespace

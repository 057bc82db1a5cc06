#include <regex>

#include "foundation/process/ProcessInfo.h"
#include "tests/support/Test.h"

namespace {

namespace ProcessInfo = foundation::ProcessInfo;

TEST(ProcessInfo, UniqueStringsAreUniqueInOtherProcessesToo) {
  std::set<std::string> seen;
  for (int i = 0; i < 2; ++i) {
    seen.insert(ProcessInfo::globallyUniqueString());
    seen.insert(inChildProcess(ProcessInfo::globallyUniqueString));
  }
  EXPECT_THAT(seen, AllOf(SizeIs(4), Each(Not(HasSubstr("/")))));
}

TEST(ProcessInfo, UUIDs) {
  unsigned char bytes[16];
  for (std::size_t i = 0; i < 16; ++i) bytes[i] = static_cast<unsigned char>(0x11 * i);
  EXPECT_EQ(ProcessInfo::uuidString(bytes), "00112233-4455-6677-8899-AABBCCDDEEFF");
  const std::regex random("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  EXPECT_TRUE(std::regex_match(ProcessInfo::newUUIDString(), random));
  EXPECT_NE(ProcessInfo::newUUIDString(), ProcessInfo::newUUIDString());
}

}  // namespace

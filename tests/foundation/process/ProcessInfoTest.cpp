#include "foundation/process/ProcessInfo.h"
#include "tests/support/Test.h"

namespace {

namespace ProcessInfo = foundation::ProcessInfo;

TEST(ProcessInfo, UniqueStringsAreUniqueInOtherProcessesToo) {
  std::set<std::string> seen = {ProcessInfo::newUUIDString(), ProcessInfo::newUUIDString()};
  EXPECT_THAT(seen, Each(testing::ContainsRegex("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB]"
                                                "[0-9A-F]{3}-[0-9A-F]{12}$")));
  for (int i = 0; i < 2; ++i) {
    seen.insert(ProcessInfo::globallyUniqueString());
    seen.insert(inChildProcess(ProcessInfo::globallyUniqueString));
  }
  EXPECT_THAT(seen, AllOf(SizeIs(6), Each(Not(HasSubstr("/")))));
}

}  // namespace

#include "foundation/host/ProcessTable.h"
#include "tests/support/Test.h"

namespace {

TEST(ProcessRecord, NamesAProcessAndItsParentAndIsEmptyForOneThatIsGone) {
  const auto own = foundation::processRecord(::getpid());
  ASSERT_TRUE(own);
  EXPECT_EQ(own->processIdentifier, ::getpid());
  EXPECT_EQ(own->parentProcessIdentifier, ::getppid());
  EXPECT_EQ(own->commandName, "foundation_host");
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  for (const pid_t process : {child, 0, -1}) {
    const auto record = foundation::processRecord(process);
    ASSERT_TRUE(record) << process;
    EXPECT_EQ(record->processIdentifier, 0);
    EXPECT_EQ(record->commandName, "");
  }
}

}  // namespace

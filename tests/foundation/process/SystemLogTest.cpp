#include "foundation/process/SystemLog.h"
#include "tests/support/Test.h"

namespace {

using foundation::systemLog;

TEST(SystemLog, WritesOneStampedLineUnlessHeld) {
  const std::string line = logOf([] {
    {
      foundation::SystemLogHold hold;
      systemLog("first");
      EXPECT_THAT(hold.take(), EndsWith("] first\n"));
      systemLog("dropped");
    }
    systemLog("at %@: %@", "here", "two\nlines");
  });
  EXPECT_THAT(line,
              testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} "
                                    "foundation_process_tests\\[" +
                                    std::to_string(::getpid()) + "\\] at here: two\\\\nlines\n"));
}

TEST(SystemLog, StampsAreInLocalTimeWithThreeDigits) {
  const ScopedEnvironment environment("TZ", "XYZ-5:30");
  EXPECT_EQ(foundation::localTimeStamp(Date(-1us)), "1970-01-01 05:29:59.999");
  EXPECT_EQ(foundation::localTimeStamp(Date(1'425'211'200'057'999us)), "2015-03-01 17:30:00.057");
}

}  // namespace

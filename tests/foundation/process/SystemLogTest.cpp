#include <regex>

#include "foundation/process/SystemLog.h"
#include "tests/support/Test.h"

namespace {

using foundation::systemLog;

TEST(SystemLog, WritesOneStampedLine) {
  const std::string line = logOf([] { systemLog("at %@: %@", "here", "two\nlines"); });
  const std::regex shape(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} foundation_process_tests\[)" +
                         std::to_string(::getpid()) + R"(\] at here: two\\nlines\n)");
  EXPECT_TRUE(std::regex_match(line, shape)) << line;
}

TEST(SystemLog, IsKeptBackWhileHeld) {
  const std::string written = logOf([] {
    {
      foundation::SystemLogHold hold;
      systemLog("first");
      EXPECT_THAT(hold.take(), EndsWith("] first\n"));
      systemLog("dropped");
    }
    systemLog("shown");
  });
  EXPECT_THAT(written, EndsWith("] shown\n"));
  EXPECT_EQ(std::ranges::count(written, '\n'), 1) << written;
}

TEST(SystemLog, StampsAreInLocalTimeWithThreeDigits) {
  const ScopedEnvironment environment("TZ", "XYZ-5:30");
  EXPECT_EQ(foundation::localTimeStamp(Date(-1us)), "1970-01-01 05:29:59.999");
  EXPECT_EQ(foundation::localTimeStamp(Date(1'425'211'200'057'999us)), "2015-03-01 17:30:00.057");
}

}  // namespace

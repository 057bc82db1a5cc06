#include <algorithm>
#include <regex>

#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/process/SystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Date;
using foundation::localTimeStamp;
using foundation::systemLog;

TEST(SystemLog, WritesOneStampedLine) {
  testing::internal::CaptureStderr();
  systemLog("at %@: %@", "here", "two\nlines");
  const std::string line = testing::internal::GetCapturedStderr();
  const std::regex shape(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} foundation_process_tests\[)" +
                         std::to_string(::getpid()) + R"(\] at here: two\\nlines\n)");
  EXPECT_TRUE(std::regex_match(line, shape)) << line;
}

TEST(SystemLog, IsKeptBackWhileHeld) {
  testing::internal::CaptureStderr();
  {
    foundation::SystemLogHold hold;
    systemLog("first");
    const std::string taken = hold.take();
    EXPECT_TRUE(taken.ends_with("] first\n")) << taken;
    systemLog("dropped");
  }
  systemLog("shown");
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(written.ends_with("] shown\n")) << written;
  EXPECT_EQ(std::ranges::count(written, '\n'), 1) << written;
}

TEST(SystemLog, StampsAreInLocalTimeWithThreeDigits) {
  const test::ScopedEnvironment environment("TZ", "XYZ-5:30");
  const auto stamp = [](std::int64_t microseconds) {
    return localTimeStamp(Date(std::chrono::microseconds(microseconds)));
  };
  EXPECT_EQ(stamp(-1), "1970-01-01 05:29:59.999");
  EXPECT_EQ(stamp(1'425'211'200'057'999), "2015-03-01 17:30:00.057");
}

}  // namespace

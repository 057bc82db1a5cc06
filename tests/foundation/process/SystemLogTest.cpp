#include "foundation/process/SystemLog.h"
#include "tests/support/Test.h"

namespace {

TEST(SystemLog, StampsAreInLocalTimeWithThreeDigits) {
  const ScopedEnvironment environment("TZ", "XYZ-5:30");
  EXPECT_EQ(foundation::localTimeStamp(Date(-1us)), "1970-01-01 05:29:59.999");
  EXPECT_EQ(foundation::localTimeStamp(Date(1'425'211'200'057'999us)), "2015-03-01 17:30:00.057");
}

}  // namespace

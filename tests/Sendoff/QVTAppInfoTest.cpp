#include "Sendoff/QVTAppInfo.h"
#include "tests/support/Test.h"

TEST(QVTAppInfoDeathTest, PreparingNothingIsAProgrammingFault) {
  EXPECT_DEATH(QVTAppInfo("key", "secret", "http://api", "http://upload").prepBinary(),
               "Assertion failed: \\(_pathToUnzippedApp\\), function -\\[QVTAppInfo prepBinary\\], "
               "file Sendoff/Sendoff/QVTAppInfo, line 76");
}

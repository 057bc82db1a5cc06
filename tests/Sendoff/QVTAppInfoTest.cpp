#include "Sendoff/QVTAppInfo.h"
#include "tests/support/Test.h"

namespace {

TEST(QVTAppInfoDeathTest, PreparingNothingIsAProgrammingFault) {
  QVTAppInfo appInfo("key", "secret", "http://api", "http://upload");
  EXPECT_TRUE(appInfo.removeTempArchives()) << "there is none";
  EXPECT_DEATH(appInfo.prepBinary(),
               "Assertion failed: \\(_pathToUnzippedApp\\), function -\\[QVTAppInfo prepBinary\\], "
               "file Sendoff/Sendoff/QVTAppInfo, line 76");
}

}  // namespace

#include "Sendoff/QVTAppInfo.h"
#include "tests/support/Test.h"

namespace {

QVTAppInfo makeAppInfo() { return QVTAppInfo("key", "secret", "http://api", "http://upload"); }

TEST(QVTAppInfoTest, RemovingTellsWhetherItCould) {
  QVTAppInfo appInfo = makeAppInfo();
  EXPECT_TRUE(appInfo.removeTempArchives()) << "there is none";
  appInfo.setPathToUnzippedApp("/nowhere/Example.app");
  EXPECT_FALSE(appInfo.removeTempArchives());
}

TEST(QVTAppInfoDeathTest, PreparingNothingIsAProgrammingFault) {
  EXPECT_DEATH(makeAppInfo().prepBinary(),
               "Assertion failed: \\(_pathToUnzippedApp\\), function -\\[QVTAppInfo prepBinary\\], "
               "file Sendoff/Sendoff/QVTAppInfo, line 76");
}

}  // namespace

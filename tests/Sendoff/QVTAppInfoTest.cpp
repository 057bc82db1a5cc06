#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Sendoff/CommandLine.h"
#include "Sendoff/DistributionUpload.h"
#include "Sendoff/ProcessCheck.h"
#include "Sendoff/QVTAppInfo.h"
#include "Sendoff/RunSequence.h"
#include "foundation/base/Error.h"
#include "foundation/base/Path.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

QVTAppInfo makeAppInfo() { return QVTAppInfo("key", "secret", "http://api", "http://upload"); }

TEST(QVTAppInfoTest, StartsEmptyButForTheCredentials) {
  const QVTAppInfo appInfo = makeAppInfo();
  EXPECT_EQ(appInfo.apiKey() + appInfo.buildSecret(), "keysecret");
  EXPECT_EQ(appInfo.apiEndpoint() + appInfo.uploadEndpoint(), "http://apihttp://upload");
  EXPECT_FALSE(appInfo.codeSignedResource() || appInfo.binary() || appInfo.provisioningProfile());
  EXPECT_FALSE(appInfo.pathToUnzippedApp() || appInfo.releasePath());
  EXPECT_TRUE(appInfo.removeTempArchives());
}

TEST(QVTAppInfoTest, EveryDistributionHasANameOfItsOwn) {
  const TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path().c_str());
  const std::string first = QVTAppInfo::pathForDistribution();
  EXPECT_THAT(first, testing::MatchesRegex(folder.path().string() +
                                           "/com.quorvantile.mac/distributions/"
                                           "[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.ipa"));
  const std::string second = QVTAppInfo::pathForDistribution();
  EXPECT_NE(first, second);
  EXPECT_EQ(foundation::deletingLastPathComponent(first), QVTAppInfo::ipaTemporaryStoragePath());
  EXPECT_EQ(foundation::deletingLastPathComponent(second), QVTAppInfo::ipaTemporaryStoragePath());
}

TEST(QVTAppInfoTest, ItsEndRemovesTheApp) {
  const TemporaryFolder folder;
  folder.write("Example.app/en.lproj/x", "");
  {
    QVTAppInfo appInfo = makeAppInfo();
    appInfo.setPathToUnzippedApp(folder / "Example.app");
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "Example.app"));
  QVTAppInfo gone = makeAppInfo();
  gone.setPathToUnzippedApp(folder / "Example.app");
  EXPECT_FALSE(gone.removeTempArchives());
}

TEST(QVTAppInfoDeathTest, PreparingNothingIsAProgrammingFault) {
  EXPECT_DEATH(makeAppInfo().prepBinary(),
               "Assertion failed: \\(_pathToUnzippedApp\\), function -\\[QVTAppInfo prepBinary\\], "
               "file Sendoff/Sendoff/QVTAppInfo, line 76");
}

TEST(Sendoff, PlainFunctions) {
  EXPECT_TRUE(isProcessNameInHierarchy("Sendoff_tests"));
  EXPECT_FALSE(isProcessNameInHierarchy(""));
  EXPECT_THAT(stripWhitespaceFromStrings({" a b ", "\tc\n", "", "  "}),
              testing::ElementsAre("ab", "\tc\n", "", ""));
  EXPECT_EQ(deviceFamilyNames(nullptr), "");
  const foundation::Value families = foundation::Array{1, "1", true, 2};
  EXPECT_EQ(deviceFamilyNames(&families), "iPhone,unknown,unknown,iPad");
  EXPECT_THAT(validationHint("com.%@.app\x1b\n", "https://a/%40%20?x=%d"),
              AllOf(testing::HasSubstr("bundle ID com.%@.app\\u001b\\n in"),
                    testing::HasSubstr("going here: https://a/%40%20?x=%d\n Then")));
}

}  // namespace
}  // namespace test

#include "tests/support/Test.h"
#include "xcode/QVTPlatform.h"

namespace {

TEST(QVTPlatform, SDKsAndTypesHaveAnIdentifierAndAName) {
  const struct {
    std::optional<std::string> sdk;
    int type;
    std::optional<std::string> identifier, display;
  } cases[] = {{"iphoneos", 1, "ios", "iOS"},
               {"iphonesimulator", 1, "ios", "iOS"},
               {"macosx", 2, "mac", "OS X"},
               {"appletvos", 3, "tvos", "tvOS"},
               {"appletvsimulator", 3, "tvos", "tvOS"},
               {"watchos", 4, "watch", "watchOS"},
               {"watchsimulator", 4, "watch", "watchOS"},
               {"iphoneos ", 0, {}, {}},
               {"iOS", 5, {}, {}},
               {{}, -1, {}, {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sdk.value_or("none"));
    const auto type = static_cast<QVTPlatformType>(c.type);
    EXPECT_EQ(QVTPlatform::translatePlatform(c.sdk), c.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatform(c.sdk), c.display);
    EXPECT_EQ(QVTPlatform::stringFromPlatform(type), c.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatformType(type), c.display);
    EXPECT_EQ(QVTPlatform::platformFromString(c.identifier),
              c.identifier ? type : QVTPlatformType::unknown);
  }
}

}  // namespace

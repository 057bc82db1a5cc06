#include <gtest/gtest.h>

#include "xcode/QVTPlatform.h"

namespace {

struct Row {
  std::optional<std::string> sdk;
  int type;
  std::optional<std::string> identifier, display;
};

TEST(QVTPlatform, SDKsAndTypesHaveAnIdentifierAndAName) {
  for (const Row& row : {
           Row{"iphoneos", 1, "ios", "iOS"},
           Row{"iphonesimulator", 1, "ios", "iOS"},
           Row{"macosx", 2, "mac", "OS X"},
           Row{"appletvos", 3, "tvos", "tvOS"},
           Row{"appletvsimulator", 3, "tvos", "tvOS"},
           Row{"watchos", 4, "watch", "watchOS"},
           Row{"watchsimulator", 4, "watch", "watchOS"},
           Row{"iphoneos ", 0, {}, {}},
           Row{"iOS", 5, {}, {}},
           Row{{}, -1, {}, {}},
       }) {
    SCOPED_TRACE(row.sdk.value_or("none"));
    const auto type = static_cast<QVTPlatformType>(row.type);
    EXPECT_EQ(QVTPlatform::translatePlatform(row.sdk), row.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatform(row.sdk), row.display);
    EXPECT_EQ(QVTPlatform::stringFromPlatform(type), row.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatformType(type), row.display);
    EXPECT_EQ(QVTPlatform::platformFromString(row.identifier),
              row.identifier ? type : QVTPlatformType::unknown);
  }
  EXPECT_EQ(QVTPlatform::platformFromString("iOS"), QVTPlatformType::unknown);
}

}  // namespace

#include <gtest/gtest.h>

#include "xcode/QVTPlatform.h"

namespace {

TEST(QVTPlatform, TranslatesSDKNames) {
  struct Row {
    const char *sdk, *identifier, *display;
  };
  for (const Row& row : {
           Row{"iphoneos", "ios", "iOS"},
           Row{"macosx", "mac", "OS X"},
           Row{"appletvos", "tvos", "tvOS"},
           Row{"appletvsimulator", "tvos", "tvOS"},
           Row{"watchos", "watch", "watchOS"},
           Row{"watchsimulator", "watch", "watchOS"},
           Row{"iphonesimulator", "ios", "iOS"},
       }) {
    EXPECT_EQ(QVTPlatform::translatePlatform(row.sdk), row.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatform(row.sdk), row.display);
  }
  for (const char* unknown : {"", "iOS", "iPhoneOS", "iphoneos ", "macsimulator"}) {
    EXPECT_EQ(QVTPlatform::translatePlatform(unknown), std::nullopt) << unknown;
    EXPECT_EQ(QVTPlatform::displayStringForPlatform(unknown), std::nullopt) << unknown;
  }
  EXPECT_EQ(QVTPlatform::translatePlatform(std::nullopt), std::nullopt);
}

TEST(QVTPlatform, TranslatesTypes) {
  struct Row {
    int type;
    std::optional<std::string> identifier, display;
  };
  for (const Row& row : {
           Row{0, std::nullopt, std::nullopt},
           Row{1, "ios", "iOS"},
           Row{2, "mac", "OS X"},
           Row{3, "tvos", "tvOS"},
           Row{4, "watch", "watchOS"},
           Row{5, std::nullopt, std::nullopt},
           Row{-1, std::nullopt, std::nullopt},
       }) {
    const auto type = static_cast<QVTPlatformType>(row.type);
    EXPECT_EQ(QVTPlatform::stringFromPlatform(type), row.identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatformType(type), row.display);
    EXPECT_EQ(QVTPlatform::platformFromString(row.identifier),
              row.identifier ? type : QVTPlatformType::unknown);
  }
  for (const std::optional<std::string>& unknown :
       {std::optional<std::string>(), std::optional<std::string>("iOS"),
        std::optional<std::string>("ios ")}) {
    EXPECT_EQ(QVTPlatform::platformFromString(unknown), QVTPlatformType::unknown);
  }
}

}  // namespace

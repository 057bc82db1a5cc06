#include "tests/support/Test.h"
#include "xcode/QVTPlatform.h"

namespace {

TEST(QVTPlatform, SDKsAndTypesHaveAnIdentifierAndAName) {
  using Text = std::optional<std::string>;
  const std::tuple<Text, int, Text, Text> cases[] = {
      {"iphoneos", 1, "ios", "iOS"},
      {"iphonesimulator", 1, "ios", "iOS"},
      {"macosx", 2, "mac", "OS X"},
      {"appletvos", 3, "tvos", "tvOS"},
      {"appletvsimulator", 3, "tvos", "tvOS"},
      {"watchos", 4, "watch", "watchOS"},
      {"watchsimulator", 4, "watch", "watchOS"},
      {"iOS", 5, std::nullopt, std::nullopt},
      {std::nullopt, -1, std::nullopt, std::nullopt}};
  for (const auto& [sdk, number, identifier, name] : cases) {
    SCOPED_TRACE(sdk.value_or("none"));
    const auto type = static_cast<QVTPlatformType>(number);
    EXPECT_EQ(QVTPlatform::translatePlatform(sdk), identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatform(sdk), name);
    EXPECT_EQ(QVTPlatform::stringFromPlatform(type), identifier);
    EXPECT_EQ(QVTPlatform::displayStringForPlatformType(type), name);
    EXPECT_EQ(QVTPlatform::platformFromString(identifier),
              identifier ? type : QVTPlatformType::unknown);
  }
}

}  // namespace

#include <gtest/gtest.h>

#include "startup/SigningToolPath.h"

TEST(SigningToolPath, OwnSigningToolsComeLast) {
  EXPECT_EQ(pathWithSigningTools("/a:/b", "/p/tools"), "/a:/b:/p/tools");
  EXPECT_EQ(pathWithSigningTools("", "/p/tools"), "/usr/bin:/bin:/p/tools");
  EXPECT_EQ(pathWithSigningTools(std::nullopt, "/p/tools"), "/usr/bin:/bin:/p/tools");
}

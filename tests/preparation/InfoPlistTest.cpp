#include "preparation/QVTInfoPlist.h"
#include "tests/support/Test.h"

namespace {

TEST(InfoPlist, FindsTheFileOfFrameworks) {
  const TemporaryFolder folder;
  for (const char* const path : {"Deep.framework/Resources/Info.plist", "Deep.framework/Info.plist",
                                 "Flat.framework/Info.plist"}) {
    writePlist(folder / path, {{"CFBundleVersion", path}});
  }
  folder.write("Bad.framework/Resources/Info.plist", "no property list");
  const auto framework = [&](const char* name) {
    return QVTInfoPlist::initWithFrameworkDirectory((folder / name).string());
  };
  EXPECT_EQ(framework("Deep.framework")->buildVersion(), "Deep.framework/Resources/Info.plist");
  EXPECT_EQ(framework("Flat.framework")->buildVersion(), "Flat.framework/Info.plist");
  EXPECT_FALSE(framework("None.framework"));
  EXPECT_EQ(framework("Bad.framework")->buildVersion(), "0");
}

}  // namespace

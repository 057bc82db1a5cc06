// The other tests trust the stand-in service to refuse what is wrong; here it has to.
#include <ctime>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/AppFixture.h"
#include "tests/support/IPAFacts.h"
#include "tests/support/StandInChecks.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

TEST(StandInServiceTest, RefusesAnUploadThatDiffersFromItsIPA) {
  const TemporaryFolder folder;
  AppOptions app;
  app.info = {{"QuorvantileSignedForDistribution", true}};
  const std::string ipa = contentsOf(packIPA(makeApp(folder.path(), app), folder / "x.ipa"));
  const IPAFacts facts = factsOf(ipa);
  ASSERT_EQ(facts.slices.size(), 2u);
  const std::string attributes = "distribution[platform_attributes]";
  const Form good = {field("app[display_version]", "2.5"),
                     field("app[build_version]", "2.5.117"),
                     field("distribution[devices][][udid]", *facts.devices.begin()),
                     field("distribution[devices][][udid]", *facts.devices.rbegin()),
                     field("distribution[built_at]", std::to_string(std::time(nullptr))),
                     field("app[type]", "ios_app"),
                     field(attributes + "[enterprise]", "false"),
                     field(attributes + "[devices]", "iPhone,iPad"),
                     field(attributes + "[min_os]", "9.0"),
                     field(attributes + "[newsstand]", "false"),
                     field("app[slices][][arch]", "armv7"),
                     field("app[slices][][uuid]", facts.slices[0].second),
                     field("app[slices][][arch]", "arm64"),
                     field("app[slices][][uuid]", facts.slices[1].second),
                     field(attributes + "[architectures]", "armv7,arm64"),
                     field("app[instance_identifier]", facts.instanceIdentifier),
                     field("send_notifications", "true"),
                     {.name = "distribution[file]",
                      .value = ipa,
                      .fileName = "2D9CDC21-9F7B-4E53-92A8-4F3D0B5F1D5C.ipa",
                      .type = "application/zip"}};
  const checks::Address about{ServiceCall::upload, "com.example.app", facts.instanceIdentifier};
  EXPECT_THAT(checks::upload(good, about, &facts), IsEmpty());
  Form turned = good;
  std::swap(turned[2], turned[3]);
  EXPECT_THAT(checks::upload(turned, about, &facts), IsEmpty()) << "devices are a set";

  for (std::size_t i = 0; i < good.size(); ++i) {
    SCOPED_TRACE(good[i].name);
    Form missing = good;
    missing.erase(missing.begin() + static_cast<std::ptrdiff_t>(i));
    if (good[i].fileName) continue;
    EXPECT_THAT(checks::upload(missing, about, &facts), testing::Not(IsEmpty()));
    Form changed = good;
    changed[i].value += "x";
    EXPECT_THAT(checks::upload(changed, about, &facts), testing::Not(IsEmpty()));
  }
  checks::Address otherBuild = about;
  otherBuild.instanceIdentifier = std::string(40, '0');
  EXPECT_THAT(checks::upload(good, otherBuild, &facts),
              testing::ElementsAre(HasSubstr("the calls before were about")));
}

}  // namespace
}  // namespace test

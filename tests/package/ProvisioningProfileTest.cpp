#include "package/ProvisioningProfile.h"
#include "tests/support/Test.h"

namespace {

using package::ProvisioningProfile;

const std::string kHeader(20, 'h');
const std::string kSignature(200, 's');

std::string fileWith(const std::string& name) {
  return kHeader + plist({{"Name", name}}) + kSignature;
}

TEST(ProvisioningProfile, DamagedFilesAreNamed) {
  const std::string list = plist({{"a", 1}});
  const std::string missing = "no property list in the profile";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"empty", "", missing},
      {"no start", kHeader + "</plist>", missing},
      {"no end", kHeader + "<?xml version=\"1.0\"?><plist>", missing},
      {"end before the start", "</plist>" + kHeader + "<?xml", missing},
      {"list seven bytes in", kHeader.substr(0, 7) + list + kSignature, missing},
      {"fewer bytes after than before", kHeader + list + "s", missing},
      {"an array", kHeader + "<?xml version=\"1.0\"?><plist><array/></plist>" + kSignature,
       "the profile is not a dictionary"},
  };
  for (const auto& [name, file, complaint] : cases) {
    const Bytes input = keepForFuzzing("Profile", bytesOf(file));
    EXPECT_EQ(problemOf(ProvisioningProfile::parse(input)), complaint) << name;
  }
  const std::string broken = kHeader + "<?xml version=\"1.0\"?><plist><dict></plist>" + kHeader;
  const auto profile = ProvisioningProfile::parse(bytesOf(broken));
  ASSERT_FALSE(profile);
  EXPECT_EQ(profile.error().domain, foundation::kCocoaErrorDomain);
}

TEST(ProvisioningProfile, TheLastPropertyListOfTheFileCounts) {
  const Value inner = Data(fileWith("inner"));
  const std::pair<const char*, std::string> cases[] = {
      {"a header of eight bytes", fileWith("N").substr(kHeader.size() - 8)},
      {"two lists", fileWith("first") + fileWith("N") + std::string(8000, '\xe9')},
      {"a profile as data of the list",  // as newer ones have
       kHeader + plist({{"Name", "N"}, {"DER-Encoded-Profile", inner}}) + kSignature},
  };
  for (const auto& [name, file] : cases) {
    const auto profile = ProvisioningProfile::parse(bytesOf(file));
    ASSERT_TRUE(profile) << name;
    EXPECT_EQ(foundation::stringAt(profile->contents, "Name"), "N") << name;
  }
}

TEST(ProvisioningProfile, WildcardsBecomeExact) {
  const ProvisioningProfile profile{
      {{"Entitlements",
        Dictionary{{"application-identifier", "T.*"},
                   {"keychain-access-groups",
                    Array{"T.*", "com.apple.token", "T.com.example.*", "T.other.*"}},
                   {"com.apple.developer.associated-domains", "*"},
                   {"services", Array{"*"}},
                   {"empty", Array{}},
                   {"get-task-allow", false}}}}};
  const Dictionary expected = {
      {"application-identifier", "T.com.example.x"},
      {"keychain-access-groups", Array{"T.com.example.x", "com.apple.token", "T.com.example.x"}},
      {"empty", Array{}},
      {"get-task-allow", false}};
  EXPECT_EQ(profile.entitlementsFor("com.example.x"), expected);
}

}  // namespace

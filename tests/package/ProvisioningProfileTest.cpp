#include "package/ProvisioningProfile.h"
#include "tests/support/Test.h"

namespace {

using package::ProvisioningProfile;

const std::string kHeader(20, 'h');
const std::string kSignature(200, 's');

std::string fileWith(Dictionary dictionary) { return kHeader + plist(dictionary) + kSignature; }

TEST(ProvisioningProfile, DamagedFilesAreNamed) {
  const std::string list = plist({{"a", 1}});
  const std::string missing = "no property list in the profile";
  const std::tuple<const char*, std::string, std::string> cases[] = {
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
}

TEST(ProvisioningProfile, TheLastPropertyListOfTheFileCounts) {
  const std::string whole = fileWith({{"Name", "N"}});
  const Value inner = Data(fileWith({{"Name", "inner"}}));
  for (const std::string& file :
       {whole.substr(kHeader.size() - 8), fileWith({}) + whole + std::string(8000, '\xe9'),
        fileWith({{"Name", "N"}, {"DER-Encoded-Profile", inner}})}) {
    const auto profile = ProvisioningProfile::parse(bytesOf(file));
    ASSERT_TRUE(profile) << file;
    EXPECT_EQ(foundation::stringAt(profile->contents, "Name"), "N");
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

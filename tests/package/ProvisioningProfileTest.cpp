#include <gtest/gtest.h>

#include "foundation/format/PropertyList.h"
#include "package/ProvisioningProfile.h"
#include "tests/support/Identities.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;
using package::ProvisioningProfile;

const std::string kHeader(20, 'h');

std::string fileOf(const Value& list) {
  return kHeader + *foundation::PropertyList::xml(list) + std::string(200, 's');
}

TEST(ProvisioningProfile, DamagedFilesAreNamed) {
  struct Damaged {
    std::string name;
    std::string file;
    std::string complaint;
  };
  const std::string list = *foundation::PropertyList::xml(Dictionary{{"a", 1}});
  const std::string missing = "no property list in the profile";
  for (const Damaged& c : {
           Damaged{"empty", "", missing},
           Damaged{"no start", kHeader + "</plist>", missing},
           Damaged{"no end", kHeader + "<?xml version=\"1.0\"?><plist>", missing},
           Damaged{"end before the start", "</plist>" + kHeader + "<?xml", missing},
           Damaged{"list at the start", list + std::string(200, 's'), missing},
           Damaged{"list seven bytes in", kHeader.substr(0, 7) + list + std::string(200, 's'),
                   missing},
           Damaged{"fewer bytes after than before", kHeader + list + "s", missing},
           Damaged{"an array", fileOf(Array{1}), "the profile is not a dictionary"},
       }) {
    SCOPED_TRACE(c.name);
    const auto profile = ProvisioningProfile::parse(foundation::bytesOf(c.file));
    ASSERT_FALSE(profile);
    EXPECT_EQ(profile.error().localizedDescription(), c.complaint);
  }
  const std::string broken = kHeader + "<?xml version=\"1.0\"?><plist><dict></plist>" + kHeader;
  const auto profile = ProvisioningProfile::parse(foundation::bytesOf(broken));
  ASSERT_FALSE(profile);
  EXPECT_EQ(profile.error().domain, foundation::kCocoaErrorDomain);
}

TEST(ProvisioningProfile, EightBytesOfHeaderAreEnough) {
  const std::string file = fileOf(Dictionary{{"Name", "N"}}).substr(kHeader.size() - 8);
  const auto profile = ProvisioningProfile::parse(foundation::bytesOf(file));
  ASSERT_TRUE(profile);
  EXPECT_EQ(foundation::stringAt(profile->contents, "Name"), "N");
}

TEST(ProvisioningProfile, OfTwoPropertyListsTheLastCounts) {
  std::string file;
  for (const std::string name : {"first", "last"}) file += fileOf(Dictionary{{"Name", name}});
  const auto profile =
      ProvisioningProfile::parse(foundation::bytesOf(file + std::string(8000, '\0')));
  ASSERT_TRUE(profile);
  EXPECT_EQ(foundation::stringAt(profile->contents, "Name"), "last");
}

TEST(ProvisioningProfile, ListsTheCertificatesThatCanBeRead) {
  const auto root = test::makeRoot();
  const foundation::Data noise = foundation::Data::copyOf(foundation::bytesOf("noise"));
  const ProvisioningProfile profile{{{"DeveloperCertificates", Array{noise, "text", root.der()}}}};
  ASSERT_EQ(profile.certificates().size(), 1u);
  EXPECT_EQ(profile.certificates().front().commonName(), root.certificate().commonName());
  EXPECT_TRUE(ProvisioningProfile().certificates().empty());
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
  EXPECT_TRUE(profile.entitlementsFor("com.example.x") == expected);
}

}  // namespace

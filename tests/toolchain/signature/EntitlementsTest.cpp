#include "tests/support/Test.h"
#include "toolchain/signature/Entitlements.h"

namespace {

TEST(EntitlementsTest, HaveOneEncoding) {
  const std::string longText(200, 'x');
  for (const auto& [dictionary, expected] : std::vector<std::pair<Dictionary, std::string>>{
           {{}, "7005020101b000"},
           {{{"a", true}}, "700d020101b00830060c01610101ff"},
           {{{"a", false}}, "700d020101b00830060c0161010100"},
           {{{"a", "b"}}, "700d020101b00830060c01610c0162"},
           {{{"a", 127}}, "700d020101b00830060c016102017f"},
           {{{"a", 128}}, "700e020101b00930070c016102020080"},
           {{{"a", -128}}, "700d020101b00830060c0161020180"},
           {{{"a", -129}}, "700e020101b00930070c01610202ff7f"},
           {{{"a", UINT64_MAX}}, "7015020101b010300e0c0161020900ffffffffffffffff"},
           {{{"a", Array{}}}, "700c020101b00730050c01613000"},
           {{{"b", 0}, {"a", Dictionary{}}}, "7014020101b00f30050c0161b00030060c0162020100"},
           {{{"k", longText}}, "7081d7020101b081d13081ce0c016b0c81c8" + hexOf(longText)},
       }) {
    const auto encoded = toolchain::encodeEntitlements(dictionary);
    EXPECT_EQ(hexOf(encoded), expected);
    const auto read = toolchain::decodeEntitlements(keepForFuzzing("Entitlements", Bytes(encoded)));
    ASSERT_TRUE(read) << problemOf(read);
    EXPECT_TRUE(*read == dictionary) << expected;
  }
}

TEST(EntitlementsTest, OtherEncodingsAreRefused) {
  const std::string canonical = "not in canonical form";
  const std::string deep = repeated("3080", 60000) + "0c0161";  // more than a stack would bear
  for (const auto& [name, digits, complaint] : std::vector<std::array<std::string, 3>>{
           {"empty", "", "the outermost element is not of the current form"},
           {"the earlier form", "310a30080c01610101ff", "outermost element"},
           {"truncated", "700d020101b00830060c01610101", "outermost element"},
           {"long length", "708105020101b000", canonical},
           {"indefinite length", "7080020101b0000000", "outermost element"},
           {"trailing byte", "7005020101b00000", "outermost element"},
           {"deep", deep, "outermost element"},
           {"version only", "7003020101", "expected a version and a dictionary"},
           {"extra element", "7007020101b0000500", "expected a version and a dictionary"},
           {"an entry of another kind", "7008020101b003020101", "entry of a dictionary is not a"},
           {"an entry without value", "700a020101b00530030c0161", "not a key and a value"},
           {"an entry with two", "700f020101b00a30080c01610200050000", "not a key and a value"},
           {"real", "700e020101b00930070c0161090203ff", "tag 0x9 is unknown"},
           {"true as 1", "700d020101b00830060c0161010101", canonical},
           {"another version", "7005020102b000", canonical},
           {"not minimal integer", "700e020101b00930070c01610202007f", canonical},
           {"keys out of order", "7015020101b01030060c016201010030060c0161010100", canonical},
           {"a key twice", "7015020101b01030060c016101010030060c0161010100", canonical},
       }) {
    EXPECT_THAT(problemOf(toolchain::decodeEntitlements(
                    bytesOf(keepForFuzzing("Entitlements", fromHex(digits))))),
                HasSubstr(complaint))
        << name;
  }
}

TEST(EntitlementsTest, WhatNoSignatureCanHoldIsNamed) {
  const auto inside = [](const Value& value) {
    return plist({{"a", Dictionary{{"b", Array{true, value}}}}});
  };
  const std::string place = "entitlements: the value of a.b[1] is ";
  for (const auto& [file, complaint] : std::vector<std::pair<std::string, std::string>>{
           {inside(1.5), place + "a real number"},
           {inside(Date{}), place + "a date"},
           {inside(Data(std::string("x"))), place + "data"},
           {"<plist><array/></plist>", "entitlements: the property list is not a dictionary"},
           {"{{{", "entitlements: "},
       }) {
    EXPECT_THAT(
        problemOf(toolchain::parseEntitlements(keepForFuzzing("Entitlements", bytesOf(file)))),
        StartsWith(complaint));
  }
}

}  // namespace

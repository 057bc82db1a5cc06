#include "tests/support/Test.h"
#include "toolchain/signature/Entitlements.h"

namespace {

TEST(EntitlementsTest, HaveOneEncoding) {
  const std::string canonical = "not in canonical form";
  const std::string deep = repeated("3080", 60000) + "0c0161";  // more than a stack would bear
  for (const auto& [name, digits, complaint] : std::vector<std::array<std::string, 3>>{
           {"sound", "7014020101b00f30050c0161b00030060c0162020100", ""},
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
    const std::string bytes = fromHex(digits);
    const auto problem =
        problemOf(toolchain::decodeEntitlements(keepForFuzzing("Entitlements", bytesOf(bytes))));
    EXPECT_THAT(problem, HasSubstr(complaint)) << name;
    EXPECT_EQ(problem.empty(), complaint.empty()) << name;
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
           {"{{{", "entitlements: "},
       }) {
    const Bytes bytes = keepForFuzzing("Entitlements", bytesOf(file));
    EXPECT_THAT(problemOf(toolchain::parseEntitlements(bytes)), StartsWith(complaint));
  }
}

}  // namespace

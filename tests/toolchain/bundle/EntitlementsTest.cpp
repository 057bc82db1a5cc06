#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Text.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/Entitlements.h"

namespace {

using foundation::Array;
using foundation::Dictionary;
using foundation::Value;

std::string hexOf(const Dictionary& dictionary) {
  return foundation::lowercaseHex(toolchain::encodeEntitlements(dictionary));
}

TEST(Entitlements, HaveOneEncoding) {
  struct Case {
    Dictionary dictionary;
    std::string expected;
  };
  const std::vector<Case> cases = {
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
      {{{"k", std::string(200, 'x')}},
       "7081d7020101b081d13081ce0c016b0c81c8" +
           [] {
             std::string text;
             for (int i = 0; i < 200; ++i) text += "78";
             return text;
           }()},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(hexOf(c.dictionary), c.expected);
    const auto read = toolchain::decodeEntitlements(toolchain::encodeEntitlements(c.dictionary));
    ASSERT_TRUE(read) << read.error().localizedDescription();
    EXPECT_TRUE(*read == c.dictionary);
  }
}

std::vector<std::byte> bytesFromHex(std::string_view text) {
  std::vector<std::byte> bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<std::byte>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

TEST(Entitlements, OtherEncodingsAreRefused) {
  for (const auto& [name, text] : std::vector<std::pair<std::string, std::string>>{
           {"empty", ""},
           {"the earlier form", "310a30080c01610101ff"},
           {"true as 1", "700d020101b00830060c0161010101"},
           {"another version", "7005020102b000"},
           {"long length", "708105020101b000"},
           {"indefinite length", "7080020101b0000000"},
           {"not minimal integer", "700e020101b00930070c01610202007f"},
           {"keys out of order", "7015020101b01030060c016201010030060c0161010100"},
           {"a key twice", "7015020101b01030060c016101010030060c0161010100"},
           {"bytes behind", "7005020101b00000"},
           {"real", "700e020101b00930070c0161090203ff"},
           {"cut off", "700d020101b00830060c01610101"},
       }) {
    EXPECT_FALSE(toolchain::decodeEntitlements(bytesFromHex(text))) << name;
  }
  // As deep as stack and time would not bear.
  std::string deep = "0c0161";
  for (int i = 0; i < 60000; ++i) deep.insert(0, "3080");
  EXPECT_FALSE(toolchain::decodeEntitlements(bytesFromHex(deep)));
}

TEST(Entitlements, TextIsKeptAndBinaryFormIsConverted) {
  const std::string text =
      "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"> <dict><key>b</key><true/>"
      "<key>a</key><string>x</string></dict></plist>";
  const auto fromText = toolchain::parseEntitlements(foundation::bytesOf(text));
  ASSERT_TRUE(fromText);
  EXPECT_EQ(fromText->xml, text);
  // {"a": true} in binary form.
  const std::string binary(
      "bplist00\xd1\x01\x02Qa\x09\x08\x0b\x0d\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0"
      "\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0e",
      8 + 6 + 3 + 32);
  const auto fromBinary = toolchain::parseEntitlements(foundation::bytesOf(binary));
  ASSERT_TRUE(fromBinary) << fromBinary.error().localizedDescription();
  EXPECT_TRUE((fromBinary->dictionary == Dictionary{{"a", true}}));
  EXPECT_THAT(fromBinary->xml, testing::StartsWith("<?xml"));
}

TEST(Entitlements, OnlyABooleanTrueSetsAFlag) {
  struct Case {
    Value value;
    std::uint64_t flags;
  };
  for (const Case& c : {Case{true, toolchain::execseg::kAllowUnsigned}, Case{false, 0}, Case{1, 0},
                        Case{"true", 0}}) {
    EXPECT_EQ(toolchain::executableSegmentFlags({{"get-task-allow", c.value}}), c.flags);
  }
  EXPECT_EQ(toolchain::executableSegmentFlags({{"dynamic-codesigning", true},
                                               {"com.apple.private.cs.debugger", true},
                                               {"run-unsigned-code", true}}),
            0x70U);
}

}  // namespace

#include <gtest/gtest.h>

#include "foundation/Text.h"

namespace foundation {
namespace {

TEST(Text, TellsWellFormedUTF8) {
  for (const char* good : {"", "plain", "\u00e4\u20ac\U0001f600", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isUTF8(good)) << good;
  }
  const std::pair<const char*, const char*> bad[] = {
      {"lone continuation", "a\x80"},
      {"overlong slash", "\xc0\xaf"},
      {"overlong in three", "\xe0\x80\xaf"},
      {"surrogate", "\xed\xa0\x80"},
      {"above the last", "\xf4\x90\x80\x80"},
      {"cut off", "abc\xe2\x82"},
      {"no lead byte", "\xff"},
      {"broken sequence", "\xe2(\xa1"},
  };
  for (const auto& [name, text] : bad) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(isUTF8(text));
    EXPECT_EQ(stringFromUTF8(bytesOf(text)), std::nullopt);
    EXPECT_TRUE(isUTF8(lossyUTF8(bytesOf(text))));
  }
  EXPECT_EQ(lossyUTF8(bytesOf("a\xff"
                              "b")),
            "a\ufffdb");
}

TEST(Text, MakesUTF8) {
  EXPECT_EQ(utf8FromUTF16(u"\u00e4\U0001f600"), "\u00e4\U0001f600");
  const char16_t lone[] = {0xd83d, u'x', 0xde00};
  EXPECT_EQ(utf8FromUTF16({lone, 3}), "\ufffdx\ufffd");
  std::string out;
  appendUTF8(out, 0xd800);
  appendUTF8(out, 0x110000);
  EXPECT_EQ(out, "\ufffd\ufffd");
}

TEST(Text, Trims) {
  const std::pair<const char*, const char*> cases[] = {
      {" \t\r\n a b \n", "a b"}, {"", ""},           {" \n ", ""}, {"\u00a0x\u3000", "x"},
      {"\xff x", "\xff x"},      {"x\x80", "x\x80"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(trimmed(text), expected);
}

TEST(Text, SplitsAndJoins) {
  EXPECT_EQ(split("", ' '), std::vector<std::string>{""});
  EXPECT_EQ(split(" a  b", ' '), (std::vector<std::string>{"", "a", "", "b"}));
  EXPECT_EQ(joined({"", "a", "", "b"}, ", "), ", a, , b");
  EXPECT_EQ(joined({}, ","), "");
}

TEST(Text, ReadsBooleansByTheirFirstCharacter) {
  for (const char* yes : {"Y", "yes", "T", "true", "1", "9", " \t+1", "-001", "+Y"}) {
    EXPECT_TRUE(boolValue(yes)) << yes;
  }
  for (const char* no : {"", "0", "N", "false", "-", "+-1", "x1", "000", "- 1"}) {
    EXPECT_FALSE(boolValue(no)) << no;
  }
}

TEST(Text, WritesHexAndLowerCase) {
  EXPECT_EQ(lowercaseHex(bytesOf("\x01\xab")), "01ab");
  EXPECT_EQ(uppercaseHex(bytesOf("\x01\xab")), "01AB");
  EXPECT_EQ(lowercased("AbC\u00c4"), "abc\u00c4");
}

}  // namespace
}  // namespace foundation

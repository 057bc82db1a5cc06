#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Text, TellsWellFormedUTF8) {
  for (const char* good : {"", "plain", "\u00e4\u20ac\U0001f600", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isUTF8(good)) << good;
  }
  const std::pair<const char*, const char*> bad[] = {
      {"lone continuation", "a\x80"}, {"overlong slash", "\xc0\xaf"},
      {"surrogate", "\xed\xa0\x80"},  {"above the last", "\xf4\x90\x80\x80"},
      {"truncated", "abc\xe2\x82"},   {"broken sequence", "\xe2(\xa1"},
      {"overlong", "\xe0\x80\xaf"}};
  for (const auto& [name, text] : bad) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(isUTF8(text));
    EXPECT_EQ(stringFromUTF8(bytesOf(text)), std::nullopt);
    EXPECT_TRUE(isUTF8(lossyUTF8(bytesOf(text))));
  }
  EXPECT_EQ(lossyUTF8(bytesOf("a\xffz")), "a\ufffdz");
}

TEST(Text, Trims) {
  const std::pair<const char*, const char*> cases[] = {{" \t\r\n a b \n", "a b"},
                                                       {" \n ", ""},
                                                       {"\u00a0x\u3000", "x"},
                                                       {"\xff x\x80", "\xff x\x80"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(trimmed(text), expected);
}

TEST(Text, EscapesControlCharacters) {
  const std::pair<std::string, const char*> cases[] = {
      {"a ä\u20ac\U0001f600 \\n\u00a0", "a ä\u20ac\U0001f600 \\n\u00a0"},
      {"\r\n\t\x1b[2J", "\\r\\n\\t\\u001b[2J"},
      {std::string("\0\x1f\x7f", 3), "\\u0000\\u001f\\u007f"},
      {"\u0080\u009b", "\\u0080\\u009b"},
      {"\x9b\xe2\x82!", "\\x9b\\xe2\\x82!"}};
  for (const auto& [text, shown] : cases) EXPECT_EQ(escapingControlCharacters(text), shown);
}

TEST(Text, ReadsBooleansByTheirFirstCharacter) {
  for (const char* yes : {"Y", "true", "9", " \t+1", "-001", "+Y"}) EXPECT_TRUE(boolValue(yes));
  for (const char* no : {"", "0", "N", "false", "-", "+-1", "x1", "- 1"}) {
    EXPECT_FALSE(boolValue(no)) << no;
  }
}

}  // namespace
}  // namespace foundation

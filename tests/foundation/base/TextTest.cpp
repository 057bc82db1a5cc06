#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Text, TellsWellFormedUTF8) {
  EXPECT_TRUE(isUTF8("plain \u00e4\u20ac\U0001f600\xf4\x8f\xbf\xbf"));
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

TEST(Text, TrimsAndEscapes) {
  for (const auto& [text, expected] : {std::pair(" \t\r\n a b \n", "a b"),
                                       {" \n ", ""},
                                       {"\u00a0x\u3000", "x"},
                                       {"\xff x\x80", "\xff x\x80"}}) {
    EXPECT_EQ(trimmed(text), expected);
  }
  for (const auto& [text, shown] : {std::pair("ä\U0001f600 \\n\u00a0", "ä\U0001f600 \\n\u00a0"),
                                    {"\r\n\t\x1b[2J", "\\r\\n\\t\\u001b[2J"},
                                    {"\x1f\x7f", "\\u001f\\u007f"},
                                    {"\u0080\u009b", "\\u0080\\u009b"},
                                    {"\x9b\xe2\x82!", "\\x9b\\xe2\\x82!"}}) {
    EXPECT_EQ(escapingControlCharacters(text), shown);
  }
}

}  // namespace
}  // namespace foundation

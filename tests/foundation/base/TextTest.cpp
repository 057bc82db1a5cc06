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

}  // namespace
}  // namespace foundation

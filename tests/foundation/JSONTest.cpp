#include <gtest/gtest.h>

#include "foundation/JSON.h"
#include "foundation/Text.h"

namespace foundation {
namespace {

std::string repeated(std::string_view text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

/// ASCII text in units of `size` bytes.
std::string widened(std::string_view text, std::size_t size, bool isBigEndian) {
  std::string out;
  for (const char c : text) {
    std::string unit(size, '\0');
    unit[isBigEndian ? size - 1 : 0] = c;
    out += unit;
  }
  return out;
}

TEST(JSON, DecodesEachKind) {
  const auto value = JSON::decode(bytesOf(
      R"({"n":null,"t":true,"i":-5,"u":18446744073709551615,"r":1.5,"s":"\u00e4\ud83d\ude00","a":[]})"));
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value(Dictionary{{"n", Value()},
                                     {"t", true},
                                     {"i", -5},
                                     {"u", ~std::uint64_t{0}},
                                     {"r", 1.5},
                                     {"s", "\u00e4\U0001f600"},
                                     {"a", Array{}}}));
}

TEST(JSON, LastValueOfARepeatedKeyWins) {
  EXPECT_EQ(*JSON::decode(bytesOf(R"({"a":1,"a":{"b":2}})")),
            (Dictionary{{"a", Dictionary{{"b", 2}}}}));
  EXPECT_EQ(*JSON::decode(bytesOf(R"({"a":{"b":2},"a":1})")), (Dictionary{{"a", 1}}));
}

TEST(JSON, ReadsEveryUnicodeForm) {
  const Value expected = Array{1, "x"};
  const std::string text = R"([1,"x"])";
  for (const std::string& form :
       {text, "\xef\xbb\xbf" + text, widened(text, 2, true), widened(text, 2, false),
        widened(text, 4, true), widened(text, 4, false), "\xff\xfe" + widened(text, 2, false),
        "\xfe\xff" + widened(text, 2, true),
        std::string("\xff\xfe\0\0", 4) + widened(text, 4, false),
        std::string("\0\0\xfe\xff", 4) + widened(text, 4, true)}) {
    const auto value = JSON::decode(bytesOf(form));
    ASSERT_TRUE(value) << lowercaseHex(bytesOf(form));
    EXPECT_EQ(*value, expected);
  }
}

TEST(JSON, RefusesWithAReason) {
  struct Case {
    const char* name;
    std::string text;
    const char* complaint;
  };
  const std::string deep = repeated("[", 100000);
  for (const Case& c : {
           Case{"empty", "", "JSON: malformed at byte 1"},
           Case{"lone string", "\"a\"", "JSON: the top level is neither an array nor an object"},
           Case{"lone null", "null", "JSON: the top level is neither an array nor an object"},
           Case{"cut off", "{\"a\":[1,", "JSON: malformed at byte 9"},
           Case{"trailing comma", "[1,]", "JSON: malformed at byte 4"},
           Case{"something behind", "[] x", "JSON: malformed at byte 4"},
           Case{"not UTF-8", "[\"\xff\"]", "JSON: malformed at byte 3"},
           Case{"lone surrogate", "[\"\\ud800\"]", "JSON: malformed at byte 9"},
           Case{"number too large", "[1e999]", "JSON: number out of range at byte 6"},
           Case{"half a UTF-16 unit", std::string("\xff\xfe[", 3),
                "JSON: ill-formed UTF-16 or UTF-32 text"},
           Case{"deep", deep, "JSON: nested deeper than 512 levels"},
           Case{"deep objects", repeated("{\"a\":", 100000), "JSON: nested deeper than 512 levels"},
       }) {
    SCOPED_TRACE(c.name);
    const auto value = JSON::decode(bytesOf(c.text));
    ASSERT_FALSE(value);
    EXPECT_EQ(value.error().localizedDescription(), c.complaint);
  }
  EXPECT_TRUE(JSON::decode(bytesOf(repeated("[", 512) + repeated("]", 512))));
}

TEST(JSON, Encodes) {
  const Value value = Dictionary{{"z", Array{Value(), true, -1, 0.5}},
                                 {"date", Date(std::chrono::seconds(1425211200))},
                                 {"data", Data(std::string("\x01\xff"))},
                                 {"bad", "a\xff\"\n"}};
  EXPECT_EQ(JSON::encode(value), R"({"bad":"a)"
                                 "\ufffd"
                                 R"(\"\n","data":"01ff","date":"2015-03-01T12:00:00Z",)"
                                 R"("z":[null,true,-1,0.5]})");
  EXPECT_EQ(JSON::encode(Array{1}, 2), "[\n  1\n]");
}

}  // namespace
}  // namespace foundation

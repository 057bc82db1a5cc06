#include "foundation/format/JSON.h"
#include "tests/foundation/format/Parsing.h"

namespace foundation {
namespace {

using namespace std::string_literals;

constexpr TextReader kJSON{"JSON", JSON::decode};

TEST(JSON, DecodesEachKindInEveryUnicodeFormAndOfARepeatedKeyTheLastValue) {
  const std::string text = R"([1,"x"])";
  expectReadings(
      kJSON,
      {{R"({"n":null,"t":true,"i":-5,"u":18446744073709551615,"r":1.5,"s":"\u00e4\ud83d\ude00"})",
        Dictionary{{"n", Value()},
                   {"t", true},
                   {"i", -5},
                   {"u", ~std::uint64_t{0}},
                   {"r", 1.5},
                   {"s", "\u00e4\U0001f600"}}},
       {R"({"a":1,"a":{"b":[]}})", Dictionary{{"a", Dictionary{{"b", Array{}}}}}},
       {R"({"a":{"b":2},"a":1})", Dictionary{{"a", 1}}},
       {"\xef\xbb\xbf" + text, Array{1, "x"}},
       {"\xff\xfe" + widened(text, 2, false), Array{1, "x"}},
       {std::string("\0\0\xfe\xff", 4) + widened(text, 4, true), Array{1, "x"}}});
  for (const std::size_t size : {2, 4}) {
    for (const bool isBigEndian : {true, false}) {
      expectReadings(kJSON, {{widened(text, size, isBigEndian), Array{1, "x"}}});
    }
  }
}

TEST(JSON, RefusesWithAReason) {
  expectRefusals(
      kJSON, "JSON: ",
      {{"empty", "", "malformed at byte 1"},
       {"lone string", "\"a\"", "the top level is neither an array nor an object"},
       {"cut off", "{\"a\":[1,", "malformed at byte 9"},
       {"something behind", "[] x", "malformed at byte 4"},
       {"not UTF-8", "[\"\xff\"]", "malformed at byte 3"},
       {"number too large", "[1e999]", "number out of range at byte 6"},
       {"half a UTF-16 unit", std::string("\xff\xfe[", 3), "ill-formed UTF-16 or UTF-32 text"},
       {"deep", repeated("[", 100000), "nested deeper than 512 levels"},
       {"deep objects", repeated("{\"a\":", 100000), "nested deeper than 512 levels"}});
  EXPECT_TRUE(kJSON(repeated("[", 512) + repeated("]", 512)));
}

TEST(JSON, EscapesControlCharacters) {
  EXPECT_EQ(JSON::encode(Array{Data("\1\xff"s), "\xff\n\x7f\u009b\u00a0"}),
            "[\"01ff\",\"\ufffd\\n\\u007f\\u009b\u00a0\"]");
}

}  // namespace
}  // namespace foundation

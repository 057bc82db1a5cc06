#include "foundation/base/Format.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Format, FillsDirectives) {
  const std::pair<std::string, const char*> cases[] = {
      {format("%@ %@ %@", std::string("a"), std::optional<std::string>()), "a (null) (null)"},
      {format("%d %ld %lu %llx", -1, -2L, 3UL, 255ULL), "-1 -2 3 ff"},
      {format("%u %x", -1L, -1L), "18446744073709551615 ffffffffffffffff"},
      {format("[%5d][%-5d][%05d][%4@]", 42, 42, 42, "ab"), "[   42][42   ][00042][  ab]"},
      {format("%.2f %@", 1.005, 1.5), "1.00 1.5"},
      {format("%s %p 100%% %y %", "text", nullptr), "text 0x0 100% %y %"},
      // Neither the text of an argument nor its type does harm.
      {format("%@ %@", "%@%n%s", "b"), "%@%n%s b"},
      {format("%d %f %s", "text", 1, 7), "text 1 7"}};
  for (const auto& [made, expected] : cases) EXPECT_EQ(made, expected);
  EXPECT_EQ(format("%99999999999d", 1).size(), 4096U);
}

TEST(Description, OfEachKindAndItsClass) {
  const std::tuple<Value, std::string, std::string> cases[] = {
      {Value(), "<null>", "NSNull"},
      {true, "1", "__NSCFBoolean"},
      {~std::uint64_t{0}, "18446744073709551615", "__NSCFNumber"},
      {0.1, "0.1", "__NSCFNumber"},
      {3.0, "3", "__NSCFNumber"},
      {"a b", "a b", "__NSCFString"},
      {Date(1425211200s), "2015-03-01 12:00:00 +0000", "__NSTaggedDate"},
      {Date(-1us), "1969-12-31 23:59:59 +0000", "__NSTaggedDate"},
      {Data(std::string("\x0a\x1b\x2c\x3d\x4e")), "<0a1b2c3d 4e>", "NSConcreteData"},
      {Array{"a", "b c"}, "(\n    a,\n    \"b c\"\n)", "__NSArrayM"},
      {Dictionary{{"k", Array{1}}}, "{\n    k = (\n        1\n    );\n}", "__NSDictionaryM"},
      {Dictionary{{"-", "\"\n"}}, "{\n    \"-\" = \"\\\"\\n\";\n}", "__NSDictionaryM"},
  };
  for (const auto& [value, text, name] : cases) {
    EXPECT_EQ(description(value), text);
    EXPECT_EQ(className(&value), name);
  }
  EXPECT_EQ(singleLineDescription(Value(Array{1, Dictionary{{"a", 1}, {"b", ""}}})),
            "(1, {a = 1; b = \"\";})");
  EXPECT_EQ(singleLineDescription(Value("x\ny\r\x1b[31m")), "x\\ny\\r\\u001b[31m");
}

TEST(Description, OfErrorsStaysOnOneLineAndShowsNestedOnes) {
  const Error inner{"Inner", 2, {{"stderr", "line 1\nline 2"}}};
  const Error outer{"Outer", -1, {{"NSUnderlyingError", inner}, {"status", 1}}};
  EXPECT_EQ(format("%@", outer),
            "Error Domain=Outer Code=-1 UserInfo={NSUnderlyingError=Error Domain=Inner Code=2 "
            "UserInfo={stderr=line 1\\nline 2}, status=1}");
  EXPECT_EQ(outer.localizedDescription(), "The operation couldn’t be completed. (Outer error -1.)");
}

}  // namespace
}  // namespace foundation

#include <gtest/gtest.h>

#include "foundation/PropertyList.h"
#include "foundation/Text.h"

namespace foundation {
namespace {

Result<Value> read(std::string_view text) { return PropertyList::parse(bytesOf(text)); }

TEST(OldStylePropertyList, ReadsWhatProjectFilesHold) {
  const auto value = read(R"(// !$*UTF8*$!
{
	archiveVersion = 1;
	/* Begin PBXGroup section */
		0A1B2C /* Products */ = {
			isa = PBXGroup;
			children = (
				AA00 /* App.app */,
				BB00 /* a, (b) = {c}; */,
			);
			path = ../Shared/lib_a-b.c;
			sourceTree = "<group>";
			settings = {ATTRIBUTES = (Weak, ); };
		};
	rootObject = 0A1B2C /* Project object */;
}
)");
  ASSERT_TRUE(value) << value.error().localizedDescription();
  EXPECT_EQ(*value,
            Value(Dictionary{
                {"archiveVersion", "1"},
                {"0A1B2C", Dictionary{{"isa", "PBXGroup"},
                                      {"children", Array{"AA00", "BB00"}},
                                      {"path", "../Shared/lib_a-b.c"},
                                      {"sourceTree", "<group>"},
                                      {"settings", Dictionary{{"ATTRIBUTES", Array{"Weak"}}}}}},
                {"rootObject", "0A1B2C"},
            }));
}

TEST(OldStylePropertyList, ReadsEachForm) {
  const std::pair<const char*, Value> cases[] = {
      {"", Dictionary{}},
      {" // nothing\n /* at all */", Dictionary{}},
      {"word", "word"},
      {"\"two words\"", "two words"},
      {"()", Array{}},
      {"(a,b)", Array{"a", "b"}},
      {"{}", Dictionary{}},
      {"a = 1; \"b c\" = (2);", Dictionary{{"a", "1"}, {"b c", Array{"2"}}}},
      {"self;", Dictionary{{"self", "self"}}},
      {"{a=1;a=2;}", Dictionary{{"a", "2"}}},
      {"<>", Data()},
      {"<0a 1B\n/* half */ 2c>", Data(std::string("\x0a\x1b\x2c"))},
      {"{u = http://h/p;}", Dictionary{{"u", "http://h/p"}}},
      {"(/usr/lib, a//b)", Array{"/usr/lib", "a//b"}},
      {"\"\"", ""},
      {"\"\u00e4\U0001f600\"", "\u00e4\U0001f600"},
      {"\xef\xbb\xbf{a = b;}", Dictionary{{"a", "b"}}},
      {"{a = b;}\r\n// end", Dictionary{{"a", "b"}}},
  };
  for (const auto& [text, expected] : cases) {
    const auto value = read(text);
    ASSERT_TRUE(value) << text << ": " << value.error().localizedDescription();
    EXPECT_EQ(*value, expected) << text;
  }
}

TEST(OldStylePropertyList, ReadsEscapes) {
  const std::pair<const char*, const char*> cases[] = {
      {R"("\a\b\f\n\r\t\v\"\\\'\q")", "\a\b\f\n\r\t\v\"\\'q"},
      {R"("\351")", "\u00d8"},
      {R"("\101\1018\7")", "AA8\a"},
      {R"("\200\377\376")", "\u00a0\ufffd\ufffd"},
      {R"("\256\257")", "\ufb01\ufb02"},
      {R"("\U00e4\U20ACx")", "\u00e4\u20acx"},
      {R"("\Ud83d\Ude00")", "\U0001f600"},
      {R"("\Ud83d\U0041")", "\ufffdA"},
      {R"("\Ud83d\n")", "\ufffd\n"},
      {R"("\Ude00")", "\ufffd"},
      {"\"line\\\nnext\"", "line\nnext"},
      {R"('single "quoted"')", "single \"quoted\""},
  };
  for (const auto& [text, expected] : cases) {
    const auto value = read(text);
    ASSERT_TRUE(value) << text << ": " << value.error().localizedDescription();
    EXPECT_EQ(*value, Value(expected)) << text;
  }
}

TEST(OldStylePropertyList, ReadsUTF16) {
  std::string text = "\xfe\xff";
  for (const char c : std::string_view("{a = \"b\";}")) text += {'\0', c};
  const auto value = read(text);
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value(Dictionary{{"a", "b"}}));
}

TEST(OldStylePropertyList, RefusesWithLineAndReason) {
  struct Case {
    std::string text;
    const char* complaint;
  };
  for (const Case& c : {
           Case{"{a = 1}", "line 1: '}' stands where a dictionary needs ';'"},
           Case{"{\n a 1;\n}", "line 2: '1' stands where a dictionary needs '='"},
           Case{"{a = ;}", "line 1: ';' begins no value"},
           Case{"{a = 1;", "line 1: the end stands where a dictionary needs '}'"},
           Case{"(a\nb)", "line 2: 'b' stands where an array needs ')'"},
           Case{"(a", "line 1: the end stands where an array needs ')'"},
           Case{"(a,", "line 1: the end stands where a value is needed"},
           Case{"(a))", "line 1: ')' stands behind the end of the list"},
           Case{"{a = \"x;\n}", "line 1: the quoted text that begins here does not end"},
           Case{"\"a\\", "line 1: the text ends in a backslash"},
           Case{"\"\\Uxyz\"", "line 1: \\U is not followed by a hexadecimal digit"},
           Case{"(a, /* b)", "line 1: the comment that begins here does not end"},
           Case{"<0a1>", "line 1: data with an odd number of digits"},
           Case{"<0x>", "line 1: 'x' stands in data, where only hexadecimal digits do"},
           Case{"<0a", "line 1: the end stands in data, where only hexadecimal digits do"},
           Case{"{a = \u00e4;}", "line 1: the byte 0xc3 begins no value"},
           Case{"{\n<<<<<<< HEAD\na = 1;\n=======\n", "line 2: '<' begins no value"},
           Case{"{\na = 1;\n>>>>>>> theirs\n}", "line 3: '>' begins no value"},
           Case{std::string(100000, '('), "line 1: nested deeper than 512 levels"},
       }) {
    SCOPED_TRACE(c.text.substr(0, 60));
    const auto value = read(c.text);
    ASSERT_FALSE(value);
    EXPECT_EQ(value.error().localizedDescription(),
              std::string("property list in the old text form, ") + c.complaint);
  }
  EXPECT_FALSE(read("{a = \"\xff\";}"));
  EXPECT_TRUE(read(std::string(512, '(') + std::string(512, ')')));
  EXPECT_FALSE(read(std::string(513, '(') + std::string(513, ')')));
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "{a=";
  EXPECT_FALSE(read(nested));
}

}  // namespace
}  // namespace foundation

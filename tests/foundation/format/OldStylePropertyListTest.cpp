#include "tests/foundation/format/Parsing.h"

namespace foundation {
namespace {

TEST(OldStylePropertyList, ReadsWhatProjectFilesHold) {
  expectReadings(
      kPropertyList,
      {{R"(// !$*UTF8*$!
{
	archiveVersion = 1;
	/* Begin PBXGroup section */
		0A1B2C /* Products */ = {
			children = (
				AA00 /* App.app */,
				BB00 /* a, (b) = {c}; */,
			);
			path = ../Shared/lib_a-b.c;
			sourceTree = "<group>";
			settings = {ATTRIBUTES = (Weak, ); };
		};
}
)",
        Dictionary{
            {"archiveVersion", "1"},
            {"0A1B2C", Dictionary{{"children", Array{"AA00", "BB00"}},
                                  {"path", "../Shared/lib_a-b.c"},
                                  {"sourceTree", "<group>"},
                                  {"settings", Dictionary{{"ATTRIBUTES", Array{"Weak"}}}}}}}},
       {" // nothing\n /* at all */", Dictionary{}},
       {"()", Array{}},
       {"self;", Dictionary{{"self", "self"}}},
       {"a = 1; a = 2; \"b c\" = (3);", Dictionary{{"a", "2"}, {"b c", Array{"3"}}}},
       {"<>", Data()},
       {"<0a 1B\n/* half */ 2c>", Data(std::string("\x0a\x1b\x2c"))},
       {"{u = http://h/p;}", Dictionary{{"u", "http://h/p"}}},
       {"\xef\xbb\xbf{a = b;}\r\n// end", Dictionary{{"a", "b"}}},
       {"\xfe\xff" + widened("{a = \"b\";}", 2, true), Dictionary{{"a", "b"}}}});
  EXPECT_TRUE(kPropertyList(repeated("(", 512) + repeated(")", 512)));
}

TEST(OldStylePropertyList, ReadsEscapes) {
  expectReadings(kPropertyList, {{R"("\a\b\f\n\r\t\v\"\\\'\q")", "\a\b\f\n\r\t\v\"\\'q"},
                                 {R"("\351")", "\u00d8"},
                                 {R"("\101\1018\7")", "AA8\a"},
                                 {R"("\200\377\256\257")", "\u00a0\ufffd\ufb01\ufb02"},
                                 {R"("\U00e4\U20ACx")", "\u00e4\u20acx"},
                                 {R"("\Ud83d\Ude00")", "\U0001f600"},
                                 {R"("\Ud83d\U0041")", "\ufffdA"},
                                 {R"("\Ud83d\n\Ude00")", "\ufffd\n\ufffd"},
                                 {"\"line\\\nnext\"", "line\nnext"},
                                 {R"('single "quoted"')", "single \"quoted\""}});
}

TEST(OldStylePropertyList, RefusesWithLineAndReason) {
  const std::string deep = "1: nested deeper than 512 levels";
  expectRefusals(kPropertyList, "property list in the old text form, line ",
                 {{"no semicolon", "{a = 1}", "1: '}' stands where a dictionary needs ';'"},
                  {"no equals sign", "{\n a 1;\n}", "2: '1' stands where a dictionary needs '='"},
                  {"no value", "{a = ;}", "1: ';' begins no value"},
                  {"no brace", "{a = 1;", "1: the end stands where a dictionary needs '}'"},
                  {"no comma", "(a\nb)", "2: 'b' stands where an array needs ')'"},
                  {"ends after a comma", "(a,", "1: the end stands where a value is needed"},
                  {"something behind", "(a))", "1: ')' follows the end of the list"},
                  {"no quote", "{a = \"x;\n}", "1: the quoted text that begins here does not end"},
                  {"ends in an escape", "\"a\\", "1: the text ends in a backslash"},
                  {"no digit", "\"\\Uxyz\"", "1: \\U is not followed by a hexadecimal digit"},
                  {"open comment", "(a, /* b)", "1: the comment that begins here does not end"},
                  {"half a byte", "<0a1>", "1: data with an odd number of digits"},
                  {"no data", "<0x>", "1: 'x' is not a hexadecimal digit of data"},
                  {"unquoted letter", "{a = \u00e4;}", "1: the byte 0xc3 begins no value"},
                  {"deep", repeated("(", 513) + repeated(")", 513), deep},
                  {"deep dictionaries", repeated("{a=", 100000), deep}});
  EXPECT_FALSE(kPropertyList("{a = \"\xff\";}"));
}

}  // namespace
}  // namespace foundation

#include "inspect/TextOutput.h"
#include "tests/support/Test.h"

namespace {

using inspect::TextOutput;
using inspect::TextStyle;

TEST(TextOutput, FitsTablesToTheTerminalWithoutLosingText) {
  TextOutput text(TextStyle{.columns = true, .width = 80});
  text.table({"created", "identifier", "path"},
             {{"2015-03-01", "com.example.app", "/Users/grüße/Library/" + std::string(120, 'x')},
              {"2015-03-02", "com.example.other", "/short"}});
  for (const auto& line : foundation::split(text.text(), '\n')) {
    EXPECT_LE(std::ranges::count_if(line, [](char c) { return (c & 0xc0) != 0x80; }), 80) << line;
  }
  EXPECT_EQ(std::ranges::count(text.text(), 'x'), 120 + 2 /* com.example twice */);
  EXPECT_THAT(text.text(), HasSubstr("created     identifier"));
}

TEST(TextOutput, WritesPlainRowsForOtherPrograms) {
  TextOutput text(TextStyle{});
  text.table({"created", "identifier", "path"}, {{"a", "", "c"}});
  text.fields({{"name", "value"}, {"longer name", std::nullopt}});
  text.line("bad", TextOutput::Tone::bad);
  EXPECT_EQ(text.text(), "a\t\tc\nname: value\nlonger name: -\nbad\n");
}

TEST(TextOutput, ColoursOnlyWhereAskedTo) {
  TextOutput text(TextStyle{.columns = true, .colour = true});
  text.fields({{"a", "1"}, {"bcd", "2"}});
  text.line("fine", TextOutput::Tone::good);
  EXPECT_EQ(text.text(), "a:   1\nbcd: 2\n\x1b[32mfine\x1b[0m\n");
}

TEST(TextOutput, ShowsForeignTextWithoutControlCharacters) {
  const std::string foreign = "a\x1b[31m\nb\u009bü\xff";
  const std::string shown = "a\\u001b[31m\\nb\\u009bü\\xff\n";
  TextOutput text(TextStyle{});
  text.heading(foreign);
  text.line(foreign);
  text.fields({{"name", foreign}});
  text.table({"heading"}, {{foreign}});
  EXPECT_EQ(text.text(), shown + shown + "name: " + shown + shown);
}

}  // namespace

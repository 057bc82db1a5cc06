#include "inspect/TextOutput.h"
#include "tests/support/Test.h"

namespace {

using inspect::TextOutput;

TEST(TextOutput, FitsTablesToTheTerminalWithoutLosingText) {
  TextOutput text({.columns = true, .colour = true, .width = 80});
  text.table({"created", "identifier", "path"},
             {{"2015-03-01", "com.example.app", "/Users/grüße/Library/" + std::string(120, 'x')},
              {"2015-03-02", "com.example.other", "/short"}});
  for (const auto& line : foundation::split(text.text(), '\n')) {
    EXPECT_LE(std::ranges::count_if(line, [](char c) { return (c & 0xc0) != 0x80; }), 80) << line;
  }
  EXPECT_EQ(std::ranges::count(text.text(), 'x'), 120 + 2 /* com.example twice */);
  EXPECT_THAT(text.text(), HasSubstr("created     identifier"));
  text.fields({{"a", "1"}, {"bcd", "2"}});
  text.line("fine", TextOutput::Tone::good);
  EXPECT_THAT(text.text(), EndsWith("\na:   1\nbcd: 2\n\x1b[32mfine\x1b[0m\n"));
}

TEST(TextOutput, IsPlainForOtherProgramsAndWithoutControlCharacters) {
  const std::string foreign = "a\x1b[31m\nb\u009bü\xff";
  const std::string shown = "a\\u001b[31m\\nb\\u009bü\\xff";
  TextOutput text({});
  text.heading(foreign);
  text.line(foreign, TextOutput::Tone::bad);
  text.fields({{"name", foreign}, {"longer name", std::nullopt}});
  text.table({"created", "identifier", "path"}, {{foreign, "", "c"}});
  EXPECT_EQ(text.text(),
            shown + "\n" + shown + "\nname: " + shown + "\nlonger name: -\n" + shown + "\t\tc\n");
}

}  // namespace

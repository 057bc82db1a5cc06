#include "QVTSharedUtils/QVTTask.h"
#include "tests/support/Test.h"

namespace {

using Strings = std::vector<std::string>;

TEST(ParsedArguments, SplitLikeAShell) {
  const std::pair<std::string, std::optional<Strings>> cases[] = {
      {"  a\tb\nc\r\nd  ", Strings{"a", "b", "c", "d"}},
      {"a\xc2\xa0\xe3\x80\x80z", Strings{"a", "z"}},  // no-break and ideographic space
      {"'it\"s' \"it's\"", Strings{"it\"s", "it's"}},
      {"a\"b c\"'d'", Strings{"ab cd"}},
      {"a\\\\b \\\" \\' c\\ d", Strings{"a\\b", "\"", "'", "c d"}},
      {"\"a\\\"b\" 'c\\'d'", Strings{"a\"b", "c'd"}},  // escapes hold inside both quotes
      {"\\\n", Strings{"\n"}},
      {"\xf0\x9f\x9a\x80 \\\xf0\x9f\x9a\x80", Strings{"\xf0\x9f\x9a\x80", "\xf0\x9f\x9a\x80"}},
      {"a\xff b", Strings{"a\xff", "b"}},
      {"abc\\", std::nullopt},
      {"abc\\\\", Strings{"abc\\"}},
      {"'abc\\'", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(QVTTask::parsedArgumentsFromString(keepForFuzzing("Arguments", text)), expected)
        << "[" << text << "]";
  }
}

TEST(MatchedArguments, CollectTheValuesOfOptions) {
  const auto match = [](const Array& provided, const Strings& options, bool allowsGlued = true) {
    return QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(provided, options,
                                                                                 allowsGlued);
  };
  const Array several = {"-F", "/a", "-F/b", "-x", "-F"};
  EXPECT_EQ(match(several, {"-F"}), (Strings{"/a", "/b", ""}));
  EXPECT_EQ(match(several, {"-F"}, false), (Strings{"/a", ""}));
  EXPECT_EQ(match({"-F", "-I/x"}, {"-F", "-I"}), (Strings{"", "/x"}));
  EXPECT_EQ(match({"-FI"}, {"-F", "-FI"}), Strings{""}) << "the option itself before any prefix";
  EXPECT_EQ(match({"-FIx"}, {"-F", "-FI"}), Strings{"Ix"}) << "the first prefix wins";
  EXPECT_EQ(match({"-F/a", 5}, {"-F"}), std::nullopt);
  EXPECT_THROW(match({"-F", ""}, {"-F"}), foundation::Exception);
}

}  // namespace

#include <gtest/gtest.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"

namespace {

using foundation::Array;
using foundation::Value;
using Strings = std::vector<std::string>;

TEST(ParsedArguments, SplitLikeAShell) {
  const struct {
    std::string text;
    std::optional<Strings> expected;
  } cases[] = {
      {"", Strings{}},
      {"    ", Strings{}},
      {"a  b", Strings{"a", "b"}},
      {"  a b  ", Strings{"a", "b"}},
      {"a\tb\nc\r\nd", Strings{"a", "b", "c", "d"}},
      {"a\xc2\xa0\xe3\x80\x80z", Strings{"a", "z"}},  // no-break and ideographic space
      {"\"a b\" c", Strings{"a b", "c"}},
      {"a\\ b", Strings{"a b"}},
      {"'it\"s'", Strings{"it\"s"}},
      {"\"it's\"", Strings{"it's"}},
      {"a \"\" b", Strings{"a", "b"}},
      {"\"\" ''", Strings{}},
      {"a\"b c\"d", Strings{"ab cd"}},
      {"\"a\"'b'", Strings{"ab"}},
      {"a\\\\b \\\" \\'", Strings{"a\\b", "\"", "'"}},
      {"\"a\\\"b\" 'c\\'d'", Strings{"a\"b", "c'd"}},  // escapes hold inside both quotes
      {"\\ ", Strings{" "}},
      {"\\\n", Strings{"\n"}},
      {"\" \" x", Strings{" ", "x"}},
      {"\xf0\x9f\x9a\x80 \\\xf0\x9f\x9a\x80", Strings{"\xf0\x9f\x9a\x80", "\xf0\x9f\x9a\x80"}},
      {"a\xff b", Strings{"a\xff", "b"}},
      {"\"abc", std::nullopt},
      {"abc'", std::nullopt},
      {"\"abc'", std::nullopt},
      {"abc\\", std::nullopt},
      {"abc\\\\", Strings{"abc\\"}},
      {"'abc\\'", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(QVTTask::parsedArgumentsFromString(c.text), c.expected) << "[" << c.text << "]";
  }
}

TEST(MatchedArguments, CollectTheValuesOfOptions) {
  const struct {
    Strings provided;
    Strings valid;
    bool glued;
    Strings expected;
  } cases[] = {
      {{"-F", "/a", "-F/b", "-x", "-F"}, {"-F"}, true, {"/a", "/b", ""}},
      {{"-F", "/a", "-F/b", "-x", "-F"}, {"-F"}, false, {"/a", ""}},
      {{"-F", "-F", "/a"}, {"-F"}, false, {"", "/a"}},
      {{"-F", "-G", "/a"}, {"-F"}, true, {""}},
      {{"-F", "-I/x"}, {"-F", "-I"}, true, {"", "/x"}},
      {{"-FI"}, {"-F", "-FI"}, true, {""}},     // the option itself comes before any prefix
      {{"-FIx"}, {"-F", "-FI"}, true, {"Ix"}},  // the first prefix in order wins
      {{"-FIx"}, {"-FI", "-F"}, true, {"x"}},
      {{"", "a"}, {"-F"}, true, {}},
      {{}, {"-F"}, true, {}},
  };
  for (const auto& c : cases) {
    const Array provided(c.provided.begin(), c.provided.end());
    EXPECT_EQ(QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
                  provided, c.valid, c.glued),
              c.expected)
        << testing::PrintToString(c.provided);
  }
}

TEST(MatchedArguments, RefuseWhatIsNoText) {
  const auto match = [](const Array& provided) {
    return QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(provided, {"-F"},
                                                                                 true);
  };
  EXPECT_EQ(match({Value("-F/a"), Value(5)}), std::nullopt);
  EXPECT_EQ(match({Value("-F"), Value()}), std::nullopt);
  EXPECT_THROW(match({Value("-F"), Value("")}), foundation::Exception);
}

}  // namespace

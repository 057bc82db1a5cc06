#include <random>

#include <regex.h>

#include "tests/support/Test.h"
#include "toolchain/seal/ResourceRules.h"

namespace {

using toolchain::ResourceRule;
using toolchain::RuleMatcher;

/// The same numbers in every run.
struct Numbers {
  std::minstd_rand next;
  std::size_t below(std::size_t bound) { return next() % bound; }
};

/// The pieces below, nested and strung together; about half of the results are not patterns.
std::string somePattern(Numbers& numbers, int depth) {
  static const std::vector<std::string> pieces = foundation::split(
      "a b ab . ^ $ [ab] [^a] []a] [b-] [a-c] \\. * + ? {2} {} {1,} {,2} {0} {1,3} {3,1} |  ( ) { "
      "} ] [ [b-a] - [[:digit:] 1 \\* / [[:alpha:]/] [[.a.]-c] [[=b=]] [^]-a] [a-b-c] [[:x:]] "
      "[--/]",
      ' ');
  std::string text;
  for (std::size_t count = numbers.below(4); count > 0; --count) {
    const std::size_t choice = numbers.below(10);
    if (choice < 7 || depth == 0) text += pieces[numbers.below(pieces.size())];
    if (choice >= 7 && depth > 0) text += "(" + somePattern(numbers, depth - 1) + ")";
    if (choice == 8) text += "*";
    if (choice == 9) text += "|" + somePattern(numbers, std::max(0, depth - 1));
  }
  return text;
}

TEST(ResourceRulesTest, MatchAsTheSystemDoesWhateverThePattern) {
  Numbers numbers;
  int patterns = 0;
  for (int i = 0; i < 20000; ++i) {
    // What the second half of them ends with has no small deterministic automaton.
    const std::string pattern = somePattern(numbers, 3) + (i % 2 == 0 ? "" : "|a.{6}b");
    const auto matcher = RuleMatcher::compile({{.pattern = pattern}});
    regex_t system;
    const bool compiles = ::regcomp(&system, pattern.c_str(), REG_EXTENDED | REG_NOSUB) == 0;
    EXPECT_EQ(matcher.ok(), compiles) << pattern;
    if (!compiles) continue;
    const std::unique_ptr<regex_t, decltype(&::regfree)> owner(&system, ::regfree);
    for (int path = 0; matcher && path < 10; ++path) {
      std::string text;
      for (auto size = numbers.below(16); size > 0; --size) text += "aabbc/.1-]"[numbers.below(10)];
      const bool matches = ::regexec(&system, text.c_str(), 0, nullptr, 0) == 0;
      EXPECT_EQ(matcher->match(text) != nullptr, matches) << pattern << " on " << text;
    }
    ++patterns;
  }
  EXPECT_GT(patterns, 2000);
}

TEST(ResourceRulesTest, HeaviestWinsAndOmissionBreaksATie) {
  const std::vector<ResourceRule> rules = {{.pattern = "a"},
                                           {.pattern = "ab", .weight = 5, .optional = true},
                                           {.pattern = "abc", .weight = 5, .omitted = true},
                                           {.pattern = "abcd", .weight = 2}};
  for (const auto& order : {rules, std::vector<ResourceRule>(rules.rbegin(), rules.rend())}) {
    const auto matcher = RuleMatcher::compile(order);
    ASSERT_TRUE(matcher);
    EXPECT_EQ(matcher->match("a")->pattern, "a");
    EXPECT_EQ(matcher->match("ab")->pattern, "ab");
    EXPECT_EQ(matcher->match("abcd")->pattern, "abc");
    EXPECT_EQ(matcher->match("x"), nullptr);
  }
}

TEST(ResourceRulesTest, CostNoMoreThanPathTimesPattern) {
  const std::string manyChoices = "(a|b)*a" + repeated("(a|b)", 60);
  const std::string nested = std::string(60, '(') + "a" + repeated("+)+", 60) + "$";
  const std::string path(4000, 'b');
  const auto before = std::chrono::steady_clock::now();
  for (const auto& [pattern, match, other] :
       std::vector<std::array<std::string, 3>>{{manyChoices, "a" + path, path + "a"},
                                               {nested, path + "a", path},
                                               {"^((b*)*)*$", path, path + "a"},
                                               {"(b|b){200}a", path + "a", path}}) {
    const auto matcher = RuleMatcher::compile({{.pattern = pattern}});
    ASSERT_TRUE(matcher) << pattern;
    keepForFuzzing("PathPattern", pattern + "\n" + match);
    EXPECT_TRUE(matcher->match(match)) << pattern;
    EXPECT_FALSE(matcher->match(other)) << pattern;
  }
  // Never sixty-one in a row, but another sixty each time.
  const auto matcher = RuleMatcher::compile({{.pattern = manyChoices}});
  Numbers numbers;
  for (int i = 0; i < 40; ++i) {
    std::string runs;
    while (runs.size() < 4000) runs += runs.size() % 61 == 60 ? 'c' : "ab"[numbers.below(2)];
    EXPECT_FALSE(matcher->match(runs));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
}

TEST(ResourceRulesTest, WhatIsWrongWithAPatternIsSaid) {
  const std::string longPattern(1025, 'a');
  for (const auto& [pattern, complaint] : std::vector<std::pair<std::string, std::string>>{
           {"(a", "a \"(\" without its \")\""},
           {"[a", "a \"[\" without its \"]\""},
           {"[a-b-c]", "a \"-\" between ranges"},
           {"[a-[:alpha:]]", "a range that ends in a class"},
           {"[b-a]", "a range that runs backwards"},
           {"[[.ab.]]", "an unknown collating element"},
           {"[[:x:]]", "an unknown class of characters"},
           {"*", "nothing to repeat"},
           {"a\\", "a backslash at the end"},
           {"(a)\\1", "an escape that POSIX leaves open"},
           {"a{1", "a \"{\" that is not a count"},
           {"a{3,1}", "a count that runs backwards"},
           {"a{256}", "a count above 255"},
           {longPattern, "more than 1024 bytes"},
           {"((((a{99}){99}){99}){99}){99}", "it is too complex"},
       }) {
    keepForFuzzing("PathPattern", pattern);
    EXPECT_EQ(problemOf(RuleMatcher::compile({{.pattern = pattern}})),
              "resource rule \"" + pattern.substr(0, 80) + "\": " + complaint);
  }
  EXPECT_TRUE(RuleMatcher::compile({{.pattern = "[" + longPattern.substr(3) + "]"}}));
}

TEST(ResourceRulesTest, AllTogetherHaveALimit) {
  const auto problem = [](const std::string& pattern, std::size_t count) {
    return problemOf(RuleMatcher::compile(std::vector<ResourceRule>(count, {.pattern = pattern})));
  };
  const std::string slow = "b[ab]{255}[ab]{220}q";
  EXPECT_EQ(problem(slow, 4), "");
  EXPECT_EQ(problem(slow, 5), "the resource rules are too complex");
  EXPECT_EQ(problem("(abc){200}", 99), "the resource rules are too complex");
  EXPECT_EQ(problem("^Resources/.*\\.lproj/", 500), "");
  EXPECT_THAT(problem("a", 1001), HasSubstr("1001 resource rules are too many"));
}

}  // namespace

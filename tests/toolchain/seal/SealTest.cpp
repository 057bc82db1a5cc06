#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include "foundation/base/Text.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/seal/ResourceSeal.h"

namespace {

using namespace test;
using testing::HasSubstr;
using toolchain::BundleShape;
using toolchain::ResourceRule;
using toolchain::RuleMatcher;

/// What the general matcher of the system answers.
bool systemMatches(const std::string& pattern, const std::string& path) {
  regex_t regex;
  EXPECT_EQ(::regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
  const bool matches = ::regexec(&regex, path.c_str(), 0, nullptr, 0) == 0;
  ::regfree(&regex);
  return matches;
}

TEST(ResourceRules, MatchAsRegularExpressionsDo) {
  std::vector<std::string> patterns = {"a.c",  "^a",        "a$",  "^a$",     ".*",    "^.*x.*$",
                                       "\\.b", "^a.*b.*c$", "a+b", "^(a|b)c", "a*",    "[ab]$",
                                       "",     "^",         "$",   "^$",      "a\\$b", "^.$"};
  for (const BundleShape shape : {BundleShape::flat, BundleShape::withResources}) {
    const auto rules = toolchain::defaultResourceRules(shape);
    for (const auto* list : {&rules.rules, &rules.rules2}) {
      for (const ResourceRule& rule : *list) patterns.push_back(rule.pattern);
    }
  }
  std::vector<std::string> paths = foundation::split(
      "a b ab abc aXc a.b a$b x axbxc acbc bc aab "
      "Info.plist InfoXplist sub/Info.plist version.plist versionXplist "
      "en.lproj/a sub/en.lproj/a enXlproj/a .lproj/a en.lproj "
      "en.lproj/locversion.plist en.lproj/x/locversion.plist Base.lproj/a sub/Base.lproj/a "
      ".DS_Store a/.DS_Store a.DS_Store .DS_Store/a X.dSYM X.dSYM/a X.dSYMS a/X.dSYM/b "
      "Frameworks/a Frameworks Library/Automator/x Library/x MacOS/a "
      "Resources/a Resources/en.lproj/a Resources/Base.lproj/x PkgInfo embedded.provisionprofile",
      ' ');
  paths.insert(paths.end(), {"line\nfeed.lproj/a", "\xff.lproj/a"});
  for (const std::string& pattern : patterns) {
    const auto matcher = RuleMatcher::compile({{.pattern = pattern}});
    ASSERT_TRUE(matcher) << pattern;
    for (const std::string& path : paths) {
      EXPECT_EQ(matcher->match(path) != nullptr, systemMatches(pattern, path))
          << pattern << " on " << path;
    }
  }
}

TEST(ResourceRules, HeaviestWinsAndOmissionBreaksATie) {
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

/// Patterns of the pieces below, nested and strung together; about half of them are none.
class PatternMaker {
 public:
  std::string pattern(int depth) {
    static const std::vector<std::string> pieces = {"a",
                                                    "b",
                                                    "ab",
                                                    ".",
                                                    "^",
                                                    "$",
                                                    "[ab]",
                                                    "[^a]",
                                                    "[]a]",
                                                    "[b-]",
                                                    "[a-c]",
                                                    "\\.",
                                                    "*",
                                                    "+",
                                                    "?",
                                                    "{2}",
                                                    "{}",
                                                    "{1,}",
                                                    "{,2}",
                                                    "{0}",
                                                    "{1,3}",
                                                    "{3,1}",
                                                    "|",
                                                    "",
                                                    "(",
                                                    ")",
                                                    "{",
                                                    "}",
                                                    "]",
                                                    "[",
                                                    "[b-a]",
                                                    "-",
                                                    "[[:digit:]",
                                                    "1",
                                                    "\\*",
                                                    "/",
                                                    "[[:alpha:]/]",
                                                    "[[.a.]-c]",
                                                    "[[=b=]]",
                                                    "[^]-a]",
                                                    "[a-b-c]",
                                                    "[[:x:]]",
                                                    "[--/]"};
    std::string text;
    for (std::uint32_t count = number(4); count > 0; --count) {
      const std::uint32_t choice = number(10);
      if (choice < 7 || depth == 0) text += pieces[number(pieces.size())];
      if (choice >= 7 && depth > 0) text += "(" + pattern(depth - 1) + ")";
      if (choice == 8) text += "*";
      if (choice == 9) text += "|" + pattern(depth - 1 < 0 ? 0 : depth - 1);
    }
    return text;
  }
  std::string path() {
    std::string text;
    for (std::uint32_t count = number(16); count > 0; --count) text += "aabbc/.1-]"[number(10)];
    return text;
  }

 private:
  std::uint32_t number(std::size_t below) {
    state_ = state_ * 1664525U + 1013904223U;
    return static_cast<std::uint32_t>((state_ >> 8) % below);
  }
  std::uint32_t state_ = 1;
};

TEST(ResourceRules, MatchAsTheSystemDoesWhateverThePattern) {
  PatternMaker maker;
  int compared = 0;
  for (int i = 0; i < 20000; ++i) {
    // What the second half of them ends with has no small deterministic automaton.
    const std::string pattern = maker.pattern(3) + (i % 2 == 0 ? "" : "|a.{6}b");
    regex_t regex;
    const bool isPattern = ::regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NOSUB) == 0;
    const auto matcher = RuleMatcher::compile({{.pattern = pattern}});
    EXPECT_EQ(matcher.ok(), isPattern) << pattern;
    for (int j = 0; isPattern && matcher && j < 10; ++j) {
      const std::string path = maker.path();
      EXPECT_EQ(matcher->match(path) != nullptr,
                ::regexec(&regex, path.c_str(), 0, nullptr, 0) == 0)
          << pattern << " on " << path;
      ++compared;
    }
    if (isPattern) ::regfree(&regex);
  }
  EXPECT_GT(compared, 20000);
}

TEST(ResourceRules, CostNoMoreThanPathTimesPattern) {
  std::string manyChoices = "(a|b)*a";
  std::string nested = "a";
  for (int i = 0; i < 60; ++i) {
    manyChoices += "(a|b)";
    nested = "(" + nested + "+)+";
  }
  const std::string path(4000, 'b');
  struct Case {
    std::string pattern;
    std::string match;
    std::string other;
  };
  const auto before = std::chrono::steady_clock::now();
  for (const Case& c :
       {Case{manyChoices, "a" + path, path + "a"}, Case{nested + "$", path + "a", path},
        Case{"^((b*)*)*$", path, path + "a"}, Case{"(b|b){200}a", path + "a", path}}) {
    const auto matcher = RuleMatcher::compile({{.pattern = c.pattern}});
    ASSERT_TRUE(matcher) << c.pattern;
    EXPECT_TRUE(matcher->match(c.match)) << c.pattern;
    EXPECT_FALSE(matcher->match(c.other)) << c.pattern;
  }
  // Never sixty-one in a row, but another sixty each time.
  const auto matcher = RuleMatcher::compile({{.pattern = manyChoices}});
  std::uint32_t state = 1;
  for (int i = 0; i < 40; ++i) {
    std::string runs;
    while (runs.size() < 4000) {
      state = state * 1664525U + 1013904223U;
      runs += runs.size() % 61 == 60 ? 'c' : "ab"[state >> 31];
    }
    EXPECT_FALSE(matcher->match(runs));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

TEST(ResourceRules, HostilePatternsAreRefused) {
  for (const std::string& pattern :
       {std::string("(a"), std::string("(a)\\1"), std::string("a{256}"),
        std::string("((((a{99}){99}){99}){99}){99}"), std::string(2000, 'a'), std::string("a\\"),
        std::string("\\w"), std::string("\\<a")}) {
    const auto matcher = RuleMatcher::compile({{.pattern = pattern}});
    ASSERT_FALSE(matcher) << pattern;
    EXPECT_THAT(matcher.error().localizedDescription(),
                testing::StartsWith("resource rule \"" + pattern.substr(0, 80) + "\": "));
  }
  EXPECT_FALSE(RuleMatcher::compile(std::vector<ResourceRule>(99, {.pattern = "(abc){200}"})));
  const ResourceRule slow{.pattern = "b[ab]{255}[ab]{220}q"};
  EXPECT_TRUE(RuleMatcher::compile(std::vector<ResourceRule>(4, slow)));
  EXPECT_FALSE(RuleMatcher::compile(std::vector<ResourceRule>(5, slow)));
  const ResourceRule usual{.pattern = "^Resources/.*\\.lproj/"};
  EXPECT_TRUE(RuleMatcher::compile(std::vector<ResourceRule>(500, usual)));
}

toolchain::ResourceSeal sealWithEveryKind() {
  toolchain::ResourceSeal seal;
  seal.rules = toolchain::defaultResourceRules(BundleShape::withResources);
  seal.rules.rules.push_back({.pattern = "half", .weight = 0.5});
  seal.rules.rules.push_back({.pattern = "never", .omitted = true});
  toolchain::SealedItem bare;
  bare.sha1 = foundation::sha1(foundation::bytesOf("a"));
  toolchain::SealedItem both = bare;
  both.sha256 = foundation::sha256(foundation::bytesOf("a"));
  both.optional = true;
  toolchain::SealedItem link;
  link.linkTarget = "../<there> & back";
  toolchain::SealedItem nested;
  nested.cdHash = std::string(20, '\x01');
  nested.requirement = "identifier \"x\"";
  seal.files = {{"a & <b>", bare}, {"\xc3\xab\\", bare}};
  seal.files2 = {{"both", both}, {"link", link}, {"nested", nested}};
  return seal;
}

TEST(ResourceSeal, IsReadAsItWasWritten) {
  const auto seal = sealWithEveryKind();
  const auto read = toolchain::parseResourceSeal(foundation::bytesOf(*toolchain::text(seal)));
  ASSERT_TRUE(read) << read.error().localizedDescription();
  EXPECT_TRUE(read->files == seal.files);
  EXPECT_TRUE(read->files2 == seal.files2);
  auto rules = seal.rules;
  const auto byPattern = [](const auto& a, const auto& b) { return a.pattern < b.pattern; };
  std::sort(rules.rules.begin(), rules.rules.end(), byPattern);
  EXPECT_TRUE(read->rules == rules);
}

TEST(ResourceSeal, IsReadInAnyLayout) {
  auto seal = sealWithEveryKind();
  for (const bool hasNested : {true, false}) {
    if (!hasNested) seal.files2.erase("nested");
    const std::string usual = *toolchain::text(seal);
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"<dict>", "<!-- said otherwise --><dict>"},
             {"\t\t<key>both</key>", "\t <key>both</key>"},
             {"a &amp; &lt;b&gt;", "a &#38; <![CDATA[<b>]]>"}}) {
      std::string unusual = usual;
      unusual.replace(unusual.find(from), from.size(), to);
      const auto read = toolchain::parseResourceSeal(foundation::bytesOf(unusual));
      ASSERT_TRUE(read) << read.error().localizedDescription();
      EXPECT_TRUE(read->files == seal.files && read->files2 == seal.files2) << from;
    }
  }
}

TEST(ResourceSeal, OnlyTheTopHasItsLists) {
  auto seal = sealWithEveryKind();
  seal.files2.erase("nested");
  std::string nested = *toolchain::text(seal);
  const auto replace = [&](const std::string& from, const std::string& to) {
    nested.replace(nested.find(from), from.size(), to);
  };
  replace("\t<key>files2</key>\n", "\t<key>x</key>\n<dict>\n\t<key>files2</key>\n");
  replace("\t<key>rules</key>\n", "</dict>\n\t<key>rules</key>\n");
  const auto read = toolchain::parseResourceSeal(foundation::bytesOf(nested));
  ASSERT_TRUE(read) << read.error().localizedDescription();
  EXPECT_TRUE(read->files2.empty());
}

TEST(ResourceSeal, DamageIsNamed) {
  const std::string good = *toolchain::text(sealWithEveryKind());
  struct Case {
    std::string from;
    std::string to;
    std::string complaint;
  };
  for (const Case& c : {
           Case{"hvfkN/qlp/zhXR3cuerq6jd2Z7g=", "AAAA", "hash is not 20 bytes of data"},
           Case{"ypeBEsobvcr6wjGzmiPcTaeG7/gUfE5yuYB3ha/uSLs=", "AAAA", "hash2 is not 32 bytes"},
           Case{"<key>symlink</key>", "<key>other</key>", "neither hash, link nor nested code"},
           Case{"<real>0.5</real>", "<string>x</string>", "weight is not a number"},
           Case{"<real>0.5</real>", "<real>nan</real>", "weight is not a number"},
           Case{"</plist>", "", "CodeResources"},
           Case{"</plist>", "</plist>x", "goes on after its end"},
           Case{"<key>link</key>", "<key>both</key>", "a dictionary has a key twice"},
           Case{"<key>rules</key>", "<key>files2</key>", "a dictionary has a key twice"},
       }) {
    SCOPED_TRACE(c.complaint);
    std::string bad = good;
    const auto at = bad.find(c.from);
    ASSERT_NE(at, std::string::npos);
    bad.replace(at, c.from.size(), c.to);
    const auto read = toolchain::parseResourceSeal(foundation::bytesOf(bad));
    ASSERT_FALSE(read);
    EXPECT_THAT(read.error().localizedDescription(), HasSubstr(c.complaint));
  }
}

}  // namespace

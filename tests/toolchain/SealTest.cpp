#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include "foundation/Text.h"
#include "tests/toolchain/CodeFixture.h"
#include "toolchain/ResourceSeal.h"

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

TEST(ResourceRules, HostilePatternsAreRefused) {
  for (const std::string& pattern :
       {std::string("(a"), std::string("(a*){2,9}"), std::string("(a)\\1"),
        std::string(2000, 'a') + "+", "(a)" + std::string(60, '+'),
        std::string("(((((a+)+)+)+)+)+")}) {
    EXPECT_FALSE(RuleMatcher::compile({{.pattern = pattern}})) << pattern;
  }
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
  const auto read = toolchain::parseResourceSeal(foundation::bytesOf(toolchain::text(seal)));
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
    const std::string usual = toolchain::text(seal);
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
  std::string nested = toolchain::text(seal);
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
  const std::string good = toolchain::text(sealWithEveryKind());
  struct Case {
    std::string from;
    std::string to;
    std::string complaint;
  };
  for (const Case& c : {
           Case{"hvfkN/qlp/zhXR3cuerq6jd2Z7g=", "AAAA", "hash is not 20 bytes of data"},
           Case{"ypeBEsobvcr6wjGzmiPcTaeG7/gUfE5yuYB3ha/uSLs=", "AAAA", "hash2 is not 32 bytes"},
           Case{"<key>symlink</key>", "<key>other</key>", "neither hash, link nor nested code"},
           Case{"<real>0.5</real>", "<string>x</string>", "weight is no number"},
           Case{"<real>0.5</real>", "<real>nan</real>", "weight is no number"},
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

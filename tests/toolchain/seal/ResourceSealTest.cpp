#include "tests/support/Test.h"
#include "toolchain/seal/ResourceSeal.h"

namespace {

using toolchain::SealedItem;

toolchain::ResourceSeal sealWithEveryKind() {
  toolchain::ResourceSeal seal;
  seal.rules = toolchain::defaultResourceRules(toolchain::BundleShape::withResources);
  seal.rules.rules.push_back({.pattern = "half", .weight = 0.5});
  seal.rules.rules.push_back({.pattern = "never", .omitted = true});
  SealedItem bare;
  bare.sha1 = foundation::sha1(bytesOf("a"));
  SealedItem both = bare;
  both.sha256 = foundation::sha256(bytesOf("a"));
  both.optional = true;
  SealedItem link;
  link.linkTarget = "../<there> & back";
  SealedItem nested;
  nested.cdHash = std::string(20, '\x01');
  nested.requirement = "identifier \"x\"";
  seal.files = {{"a & <b>", bare}, {"\xc3\xab\\", bare}};
  seal.files2 = {{"both", both}, {"link", link}, {"nested", nested}};
  return seal;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(ResourceSealTest, IsReadAsItWasWritten) {
  const auto seal = sealWithEveryKind();
  const auto read = toolchain::parseResourceSeal(
      bytesOf(keepForFuzzing("CodeResources", *toolchain::text(seal))));
  ASSERT_TRUE(read) << problemOf(read);
  EXPECT_TRUE(read->files == seal.files);
  EXPECT_TRUE(read->files2 == seal.files2);
  auto rules = seal.rules;
  std::ranges::sort(rules.rules, {}, &toolchain::ResourceRule::pattern);
  EXPECT_TRUE(read->rules == rules);
}

TEST(ResourceSealTest, IsReadInAnyLayout) {
  const auto seal = sealWithEveryKind();
  const std::string usual = *toolchain::text(seal);
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"<dict>", "<!-- said otherwise --><dict>"},
           {"\t\t<key>both</key>", "\t <key>both</key>"},
           {"a &amp; &lt;b&gt;", "a &#38; <![CDATA[<b>]]>"}}) {
    const auto read = toolchain::parseResourceSeal(
        bytesOf(keepForFuzzing("CodeResources", replaced(usual, from, to))));
    ASSERT_TRUE(read) << problemOf(read);
    EXPECT_TRUE(read->files == seal.files && read->files2 == seal.files2) << from;
  }
  // Only the top has its lists.
  const std::string inner = replaced(usual, "\t<key>files2", "\t<key>x</key>\n<dict>\t<key>files2");
  const auto read = toolchain::parseResourceSeal(
      bytesOf(replaced(inner, "\t<key>rules</key>", "</dict>\t<key>rules</key>")));
  ASSERT_TRUE(read) << problemOf(read);
  EXPECT_TRUE(read->files == seal.files && read->files2.empty());
}

TEST(ResourceSealTest, DamageIsNamed) {
  const std::string good = *toolchain::text(sealWithEveryKind());
  for (const auto& [from, to, complaint] : std::vector<std::array<std::string, 3>>{
           {"hvfkN/qlp/zhXR3cuerq6jd2Z7g=", "AAAA", "files: a & <b>: hash is not 20 bytes of data"},
           {"ypeBEsobvcr6wjGzmiPcTaeG7/gUfE5yuYB3ha/uSLs=", "AAAA",
            "files2: both: hash2 is not 32 bytes of data"},
           {"<key>symlink</key>", "<key>other</key>",
            "files2: link: neither hash, link nor nested code"},
           {"<key>both</key>", "<key>a</key><true/><key>both</key>",
            "files2: a: no data or dictionary"},
           {"<key>files</key>", "<key>files</key><true/><key>x</key>", "files is not a dictionary"},
           {"<real>0.5</real>", "<string>x</string>",
            "rules: resource rule \"half\": weight is not a number"},
           {"<real>0.5</real>", "<real>nan</real>", "weight is not a number"},
           {"<key>rules</key>", "<key>rules</key><true/><key>x</key>",
            "rules: resource rules are not a dictionary"},
           {"<key>^version\\.plist$</key>", "<key>b</key><string/><key>^version\\.plist$</key>",
            "resource rule \"b\" is neither a boolean nor a dictionary"},
           {"</plist>", "", "XML property list"},
           {"</plist>", "</plist>x", "goes on after its end"},
           {"<key>link</key>", "<key>both</key>", "a dictionary has a key twice"},
           {"<key>rules</key>", "<key>files2</key>", "a dictionary has a key twice"},
       }) {
    EXPECT_THAT(problemOf(toolchain::parseResourceSeal(
                    bytesOf(keepForFuzzing("CodeResources", replaced(good, from, to))))),
                AllOf(StartsWith("CodeResources: "), HasSubstr(complaint)));
  }
  EXPECT_EQ(problemOf(toolchain::parseResourceSeal(bytesOf("<plist><array/></plist>"))),
            "CodeResources: the top level is not a dictionary");
}

TEST(ResourceSealTest, NamesWhatXMLCannotHold) {
  SealedItem link;
  link.linkTarget = "to\x01";
  for (const auto& [name, item] : {std::pair{"a\x01", SealedItem()}, std::pair{"link", link}}) {
    toolchain::ResourceSeal seal;
    seal.files2 = {{name, item}};
    EXPECT_EQ(problemOf(toolchain::text(seal)),
              std::string(name) + ": its name or link has a character that no seal can hold");
  }
}

}  // namespace

#include "tests/support/Test.h"
#include "toolchain/seal/ResourceSeal.h"

namespace {

toolchain::ResourceSeal sealWithEveryKind() {
  toolchain::ResourceSeal seal;
  seal.rules = toolchain::defaultResourceRules(toolchain::BundleShape::withResources);
  seal.rules.rules.push_back({.pattern = "half", .weight = 0.5});
  seal.rules.rules.push_back({.pattern = "never", .omitted = true});
  const auto sha1 = foundation::sha1(bytesOf("a"));
  seal.files["a & <b>"].sha1 = sha1;
  seal.files["\xc3\xab\\"].sha1 = sha1;
  seal.files2["both"].sha1 = sha1;
  seal.files2["both"].sha256 = foundation::sha256(bytesOf("a"));
  seal.files2["both"].optional = true;
  seal.files2["link"].linkTarget = "../<there> & back";
  seal.files2["nested"].cdHash = std::string(20, '\x01');
  seal.files2["nested"].requirement = "identifier \"x\"";
  return seal;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(ResourceSealTest, IsReadInAnyLayout) {
  const auto seal = sealWithEveryKind();
  auto rules = seal.rules;
  std::ranges::sort(rules.rules, {}, &toolchain::ResourceRule::pattern);
  const std::string usual = *toolchain::text(seal);
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"", ""},
           {"<dict>", "<!-- said otherwise --><dict>"},
           {"\t\t<key>both</key>", "\t <key>both</key>"},
           {"a &amp; &lt;b&gt;", "a &#38; <![CDATA[<b>]]>"}}) {
    const auto read = toolchain::parseResourceSeal(
        bytesOf(keepForFuzzing("CodeResources", replaced(usual, from, to))));
    ASSERT_TRUE(read) << problemOf(read);
    EXPECT_TRUE(read->files == seal.files) << from;
    EXPECT_TRUE(read->files2 == seal.files2) << from;
    EXPECT_TRUE(read->rules == rules) << from;
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
           {good, "<plist><array/></plist>", "the top level is not a dictionary"},
           {"</plist>", "", "XML property list"},
           {"</plist>", "</plist>x", "goes on after its end"},
           {"<key>link</key>", "<key>both</key>", "a dictionary has a key twice"},
           {"<key>rules</key>", "<key>files2</key>", "a dictionary has a key twice"},
       }) {
    EXPECT_THAT(problemOf(toolchain::parseResourceSeal(
                    bytesOf(keepForFuzzing("CodeResources", replaced(good, from, to))))),
                AllOf(StartsWith("CodeResources: "), HasSubstr(complaint)));
  }
}

}  // namespace

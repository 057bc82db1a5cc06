#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Text.h"
#include "tests/support/Identities.h"
#include "toolchain/signature/Requirement.h"

namespace {

using namespace test;
using foundation::Certificate;
using testing::HasSubstr;
using toolchain::requirement::Expression;
using toolchain::requirement::Match;
using toolchain::requirement::Operation;

std::vector<foundation::Certificate> chainOf(const Family& family) {
  return {family.leaf.certificate(), family.intermediate.certificate(), family.root.certificate()};
}

std::string hexText(std::string_view text) {
  return foundation::lowercaseHex(foundation::bytesOf(text));
}

TEST(Requirement, DeveloperIdentitiesAreNamedByLeafAndIssuersMark) {
  const std::string name = "iPhone Developer: J\xc3\xb6rg (ABCDE12345) and more xyz";
  ASSERT_EQ(name.size(), 49U);
  const auto expression =
      toolchain::defaultRequirement("com.example.app", chainOf(makeDeveloperFamily(name)));
  const std::string expected =
      "fade0c01000000b8000000010000000300000014"
      "fade0c00000000a400000001"
      "00000006"
      "000000020000000f" +
      hexText("com.example.app") +
      "00"
      "000000060000000f"
      "000000060000000b000000000000000a" +
      hexText("subject.CN") +
      "0000"
      "0000000100000031" +
      hexText(name) +
      "000000"
      "0000000e000000010000000a2a864886f76364060201"
      "000000000000";
  EXPECT_EQ(foundation::lowercaseHex(toolchain::makeRequirementSet(expression)), expected);
  EXPECT_EQ(toolchain::text(expression),
            "identifier \"com.example.app\" and anchor apple generic and certificate "
            "leaf[subject.CN] = 0x" +
                hexText(name) + " and certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */");
}

TEST(Requirement, OtherIdentitiesAreNamedByTheLastCertificateOfTheirOrganization) {
  const Family family = makeFamily();
  const auto chain = chainOf(family);
  const auto developers = chainOf(makeDeveloperFamily());
  const MadeIdentity root = makeRoot("Other CA");
  const auto hash = [](const Certificate& one) {
    return " = H\"" + foundation::lowercaseHex(one.sha1()) + '"';
  };
  const auto organized = [](const MadeIdentity& issuer) {
    return makeLeaf(issuer, {.commonName = "Issuer", .organizations = {"Example Corp"}});
  };
  const MadeIdentity issuer = organized(root);
  struct Case {
    const char* name;
    std::vector<Certificate> chain;
    std::string text;
  };
  for (const Case& c : {
           Case{"the leaf alone", chain, "leaf" + hash(chain[0])},
           Case{"the leaf is the root", {chain[0]}, "root" + hash(chain[0])},
           Case{"an issuer of the same",
                {chain[0], issuer.certificate(), root.certificate()},
                "1" + hash(issuer.certificate())},
           Case{"a root of the same",
                {chain[0], issuer.certificate()},
                "root" + hash(issuer.certificate())},
           Case{"an issuer without mark",
                {developers[0], chain[2], developers[2]},
                "leaf" + hash(developers[0])},
           Case{"no issuer between", {developers[0], developers[2]}, "leaf" + hash(developers[0])},
           Case{"the name is the issuer's",
                {developers[0], developers[1], developers[1]},
                "leaf" + hash(developers[0])},
       }) {
    EXPECT_EQ(toolchain::text(toolchain::defaultRequirement("x", c.chain)),
              "identifier x and certificate " + c.text)
        << c.name;
  }
}

Expression leaf(Operation operation, std::string data = {}) {
  Expression expression;
  expression.operation = operation;
  expression.data = std::move(data);
  return expression;
}

Expression joined(Operation operation, std::vector<Expression> operands) {
  Expression expression;
  expression.operation = operation;
  expression.operands = std::move(operands);
  return expression;
}

Expression matching(Operation operation, std::string key, Match match, std::string value = {}) {
  Expression expression;
  expression.operation = operation;
  expression.key = std::move(key);
  expression.match = match;
  expression.matchValue = std::move(value);
  return expression;
}

TEST(Requirement, TextAndBytesOfEveryOperation) {
  const auto a = leaf(Operation::identifier, "a");
  const auto b = leaf(Operation::identifier, "b");
  Expression anchor = leaf(Operation::anchorHash, std::string(20, '\x2a'));
  anchor.certificate = -1;
  struct Case {
    Expression expression;
    std::string text;
  };
  for (const Case& c : {
           Case{leaf(Operation::always), "always"},
           Case{leaf(Operation::never), "never"},
           Case{leaf(Operation::anchorApple), "anchor apple"},
           Case{leaf(Operation::identifier, "and"), "identifier \"and\""},
           Case{leaf(Operation::identifier, "1a"), "identifier \"1a\""},
           Case{leaf(Operation::identifier, "a\"\\"), "identifier \"a\\\"\\\\\""},
           Case{leaf(Operation::cdHash, "\x01"), "cdhash H\"01\""},
           Case{anchor, "certificate root = H\"2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a2a\""},
           Case{joined(Operation::negation, {a}), "! identifier a"},
           Case{joined(Operation::disjunction, {a, joined(Operation::conjunction, {a, b})}),
                "identifier a or identifier a and identifier b"},
           Case{joined(Operation::conjunction, {joined(Operation::disjunction, {a, b}), b}),
                "(identifier a or identifier b) and identifier b"},
           Case{matching(Operation::infoKey, "CFBundleVersion", Match::greaterEqual, "17"),
                "info[CFBundleVersion] >= \"17\""},
           Case{matching(Operation::entitlement, "get-task-allow", Match::absent),
                "entitlement[get-task-allow] absent"},
           Case{matching(Operation::certificateField, "subject.OU", Match::beginsWith, "T"),
                "certificate leaf[subject.OU] = T*"},
           Case{matching(Operation::certificatePolicy, "\x2a\x03", Match::exists),
                "certificate leaf[policy.1.2.3] /* exists */"},
       }) {
    EXPECT_EQ(toolchain::text(c.expression), c.text);
    const auto blob = toolchain::makeRequirement(c.expression);
    const auto read = toolchain::parseRequirement(blob);
    ASSERT_TRUE(read) << read.error().localizedDescription();
    EXPECT_EQ(toolchain::text(*read), c.text);
    EXPECT_EQ(toolchain::makeRequirement(*read), blob);
    // Every shorter blob is refused, whatever its length says.
    for (std::size_t size = 0; size < blob.size(); size += 4) {
      std::vector<std::byte> cut(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(size));
      if (size >= 8) cut[7] = static_cast<std::byte>(size);
      EXPECT_FALSE(toolchain::parseRequirement(cut)) << c.text << " at " << size;
    }
  }
}

TEST(Requirement, DamageIsNamed) {
  namespace magic = toolchain::magic;
  struct Case {
    const char* name;
    std::vector<std::uint32_t> words;
    const char* complaint;
    std::uint32_t magic = magic::kRequirement;
  };
  for (const Case& c : {
           Case{"kind", {2, 1}, "requirement: kind 2 is unknown"},
           Case{"operation", {1, 12}, "requirement: operation 12 is unknown"},
           Case{"match", {1, 10, 0, 9}, "requirement: match 9 is unknown"},
           Case{"more", {1, 1, 0}, "requirement continues after its expression, at byte 4"},
           Case{"many", {17}, "requirements: count 17 does not fit", magic::kRequirementSet},
           Case{"two designated",
                {2, 3, 28, 3, 28, magic::kRequirement, 16, 1, 1},
                "requirement 1 of 2: a second one of type 3",
                magic::kRequirementSet},
           Case{"outside", {1, 3, 999}, "requirement 0 of 1 lies outside", magic::kRequirementSet},
       }) {
    toolchain::ByteWriter payload;
    for (const auto word : c.words) payload.u32(word);
    const auto blob = toolchain::makeBlob(c.magic, payload.bytes());
    const auto problem = [](const auto& result) {
      return result ? std::string() : result.error().localizedDescription();
    };
    EXPECT_THAT(c.magic == magic::kRequirement ? problem(toolchain::parseRequirement(blob))
                                               : problem(toolchain::parseRequirementSet(blob)),
                HasSubstr(c.complaint))
        << c.name;
  }
}

TEST(Requirement, DeepNestingIsRefused) {
  Expression deep = leaf(Operation::always);
  for (int i = 0; i < 1000; ++i) deep = joined(Operation::negation, {std::move(deep)});
  const auto read = toolchain::parseRequirement(toolchain::makeRequirement(deep));
  ASSERT_FALSE(read);
  EXPECT_THAT(read.error().localizedDescription(), HasSubstr("nested too deep"));
}

TEST(Requirement, NoRequirementIsAnEmptySet) {
  EXPECT_EQ(foundation::lowercaseHex(toolchain::emptyRequirementSet()), "fade0c010000000c00000000");
}

}  // namespace

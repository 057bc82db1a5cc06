#include <chrono>

#include <gtest/gtest.h>

#include "foundation/crypto/DER.h"
#include "tests/support/AppFixture.h"
#include "toolchain/signature/RequirementEvaluation.h"

namespace toolchain {
namespace {

using requirement::Expression;
using requirement::Match;
using requirement::Operation;

constexpr std::string_view kMark = test::kIntermediateMarker;

RequirementSubject subject() {
  RequirementSubject code;
  code.identifier = "com.example.app";
  code.cdHashes = {std::vector<std::byte>(20, std::byte{7})};
  const auto& family = test::signingFamily();
  code.chain = {family.leaf.certificate(), family.intermediate.certificate(),
                family.root.certificate()};
  code.info = {{"CFBundleVersion", "10.2"}, {"Number", 7}};
  code.entitlements = {{"on", true}, {"off", false}, {"groups", foundation::Array{"a", "b.c"}}};
  return code;
}

Expression with(Operation operation, std::string key, Match match = Match::exists,
                std::string value = {}, std::int32_t certificate = 0) {
  Expression expression;
  expression.operation = operation;
  expression.key = std::move(key);
  expression.match = match;
  expression.matchValue = std::move(value);
  expression.certificate = certificate;
  return expression;
}

Expression data(Operation operation, std::string bytes, std::int32_t certificate = 0) {
  Expression expression;
  expression.operation = operation;
  expression.data = std::move(bytes);
  expression.certificate = certificate;
  return expression;
}

std::string hashOf(const test::MadeIdentity& identity) {
  return std::string(foundation::textOf(identity.certificate().sha1()));
}

/// The bare content of an object identifier.
std::string bareOID(std::string_view dotted) {
  return foundation::DER::objectIdentifier(dotted).substr(2);
}

TEST(RequirementEvaluationTest, Leaves) {
  const auto& family = test::signingFamily();
  struct Row {
    const char* name;
    Expression expression;
    bool isMet;
  };
  const auto info = [](Match match, const char* value) {
    return with(Operation::infoKey, "CFBundleVersion", match, value);
  };
  const auto field = [](const char* name, Match match, const char* value) {
    return with(Operation::certificateField, name, match, value);
  };
  const auto right = [](const char* key, Match match, const char* value = "") {
    return with(Operation::entitlement, key, match, value);
  };
  for (const auto& [name, expression, isMet] : std::vector<Row>{
           {"never", data(Operation::never, ""), false},
           {"always", data(Operation::always, ""), true},
           {"identifier", data(Operation::identifier, "com.example.app"), true},
           {"other identifier", data(Operation::identifier, "com.example.ap"), false},
           {"cdhash", data(Operation::cdHash, std::string(20, 7)), true},
           {"other cdhash", data(Operation::cdHash, std::string(20, 8)), false},
           {"leaf hash", data(Operation::anchorHash, hashOf(family.leaf), 0), true},
           {"root hash", data(Operation::anchorHash, hashOf(family.root), -1), true},
           {"hash elsewhere", data(Operation::anchorHash, hashOf(family.root), 0), false},
           {"position outside", data(Operation::anchorHash, hashOf(family.root), 9), false},
           {"position before the leaf", data(Operation::anchorHash, hashOf(family.leaf), -4),
            false},
           {"mark", with(Operation::certificateOID, bareOID(kMark), Match::exists, "", 1), true},
           {"no mark", with(Operation::certificateOID, bareOID(kMark), Match::exists, "", 0),
            false},
           {"mark absent", with(Operation::certificateOID, bareOID(kMark), Match::absent), true},
           {"policy", with(Operation::certificatePolicy, bareOID("1.2.3.4")), false},
           {"common name", field("subject.CN", Match::beginsWith, "iPhone Distribution"), true},
           {"unit", field("subject.OU", Match::equal, "ABCDE12345"), true},
           {"unknown field", field("subject.X", Match::exists, ""), false},
           {"equal", info(Match::equal, "10.2"), true},
           {"contains", info(Match::contains, "0."), true},
           {"ends", info(Match::endsWith, ".3"), false},
           {"numbers, not letters", info(Match::greater, "9.9"), true},
           {"leading zeros", info(Match::lessEqual, "010.2"), true},
           {"longer", info(Match::less, "10.2.1"), true},
           {"at least", info(Match::greaterEqual, "10.10"), false},
           {"number", with(Operation::infoKey, "Number", Match::equal, "7"), true},
           {"missing key", with(Operation::infoKey, "Missing", Match::equal, ""), false},
           {"absent key", with(Operation::infoKey, "Missing", Match::absent), true},
           {"true", right("on", Match::exists), true},
           {"false is not there", right("off", Match::exists), false},
           {"false is absent", right("off", Match::absent), true},
           {"any of an array", right("groups", Match::beginsWith, "b."), true},
           {"none of an array", right("groups", Match::equal, "c"), false},
       }) {
    EXPECT_EQ(meets(subject(), expression), isMet) << name;
  }
}

TEST(RequirementEvaluationTest, Junctions) {
  const auto junction = [](Operation operation, bool first, bool second) {
    Expression expression;
    expression.operation = operation;
    for (const bool each : {first, second}) {
      expression.operands.push_back(data(each ? Operation::always : Operation::never, ""));
    }
    return meets(subject(), expression);
  };
  for (const bool first : {false, true}) {
    EXPECT_EQ(junction(Operation::negation, first, false), !first);
    for (const bool second : {false, true}) {
      EXPECT_EQ(junction(Operation::conjunction, first, second), first && second);
      EXPECT_EQ(junction(Operation::disjunction, first, second), first || second);
    }
  }
}

/// A disjunction of the same many times, about `count`, and of what comes last.
Expression anyOf(const Expression& each, std::size_t count, Expression last) {
  if (count == 0) return last;
  Expression expression;
  expression.operation = Operation::disjunction;
  expression.operands.push_back(anyOf(each, (count - 1) / 2, each));
  expression.operands.push_back(anyOf(each, count / 2, std::move(last)));
  return expression;
}

TEST(RequirementEvaluationTest, CostIsBounded) {
  auto code = subject();
  const auto always = data(Operation::always, "");
  const auto other = with(Operation::certificateField, "subject.OU", Match::equal, "none");
  EXPECT_TRUE(meets(code, anyOf(other, 1000, always)));
  const std::vector<std::string> organizations(2000, std::string(60, 'a'));
  const auto root = test::makeRoot("Root");
  code.chain = {test::makeLeaf(root, {.organizations = organizations}).certificate(),
                root.certificate()};
  code.info["Long"] = std::string(1 << 15, 'a');
  code.info["Many"] = foundation::Array(100000, "a");
  const std::string key = bareOID("1.2.3.4");
  const auto before = std::chrono::steady_clock::now();
  for (const Expression& each :
       {other, with(Operation::infoKey, "Many", Match::equal, "b"),
        with(Operation::infoKey, "Long", Match::contains, std::string(1000, 'a') + "b"),
        with(Operation::certificateOID, key), with(Operation::certificatePolicy, key),
        data(Operation::anchorHash, "")}) {
    EXPECT_TRUE(meets(code, anyOf(each, 1, always))) << text(each).substr(0, 80);
    EXPECT_FALSE(meets(code, anyOf(each, 20000, always))) << text(each).substr(0, 80);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

/// The vendor's developer programs are told by the issuer's mark. Its roots cannot be made at home:
/// one that only has the name stands in for them.
TEST(RequirementEvaluationTest, Anchors) {
  const auto family = test::makeDeveloperFamily();
  const auto leaf = family.leaf.certificate();
  const auto root = family.root.certificate();
  const auto unmarked = test::signingFamily().root.certificate();
  struct Row {
    const char* name;
    std::vector<foundation::Certificate> chain;
    bool isGeneric;
    bool isOwn;
  };
  for (const auto& [name, chain, isGeneric, isOwn] : std::vector<Row>{
           {"developer", {leaf, family.intermediate.certificate(), root}, true, false},
           {"the vendor's own", {leaf, unmarked, root}, true, true},
           {"home-made", subject().chain, false, false},
           {"no issuer between", {leaf, root}, false, false},
           {"cut off", {leaf, family.intermediate.certificate()}, false, false},
           {"none", {}, false, false},
       }) {
    auto code = subject();
    code.chain = chain;
    EXPECT_FALSE(meets(code, data(Operation::anchorAppleGeneric, ""))) << name;
    EXPECT_FALSE(meets(code, data(Operation::anchorApple, ""))) << name;
    code.isAppleRoot = isNamedLikeAppleRoot;
    EXPECT_EQ(meets(code, data(Operation::anchorAppleGeneric, "")), isGeneric) << name;
    EXPECT_EQ(meets(code, data(Operation::anchorApple, "")), isOwn) << name;
  }
}

TEST(RequirementEvaluationTest, TheVendorsRootsAreKnownByTheirDigests) {
  for (std::string digits : {"b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
                             "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
                             "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"}) {
    foundation::SHA256Digest digest;
    for (std::size_t i = 0; i < digest.size(); ++i) {
      digest[i] = static_cast<std::byte>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    }
    EXPECT_TRUE(isAppleRoot(digest)) << digits;
    digest.back() ^= std::byte{1};
    EXPECT_FALSE(isAppleRoot(digest)) << digits;
  }
}

/// Ad-hoc code has no certificates: whatever asks for one is not met.
TEST(RequirementEvaluationTest, CodeWithoutChain) {
  auto code = subject();
  code.chain.clear();
  EXPECT_FALSE(meets(code, data(Operation::anchorHash, "", 0)));
  EXPECT_FALSE(meets(code, with(Operation::certificateField, "subject.CN")));
  EXPECT_TRUE(meets(code, with(Operation::certificateField, "subject.CN", Match::absent)));
}

}  // namespace
}  // namespace toolchain

#include "foundation/crypto/DER.h"
#include "tests/support/AppFixture.h"
#include "tests/support/Test.h"
#include "tests/toolchain/signature/Expressions.h"
#include "toolchain/signature/RequirementEvaluation.h"

namespace {

using toolchain::meets;

toolchain::RequirementSubject subject() {
  toolchain::RequirementSubject code;
  code.identifier = "com.example.app";
  code.cdHashes = {std::vector<std::byte>(20, std::byte{7})};
  code.chain = signingFamily().chain();
  code.info = {{"CFBundleVersion", "10.2"}, {"Number", 7}};
  code.entitlements = {{"on", true}, {"off", false}, {"groups", Array{"a", "b.c"}}};
  return code;
}

/// The bare content of an object identifier.
std::string bareOID(std::string_view dotted) {
  return foundation::DER::objectIdentifier(dotted).substr(2);
}

TEST(RequirementEvaluationTest, EveryOperation) {
  using enum Operation;
  using enum Match;
  const auto hash = [](const MadeIdentity& identity, std::int32_t position) {
    return leaf(anchorHash, std::string(textOf(identity.certificate().sha1())), position);
  };
  const auto& [leaf_, intermediate, root] = signingFamily();
  const std::string mark = bareOID(kIntermediateMarker);
  const auto version = [](Match match, const char* value) {
    return matching(infoKey, "CFBundleVersion", match, value);
  };
  for (const auto& [expression, isMet] : std::vector<std::pair<Expression, bool>>{
           {leaf(never), false},
           {leaf(always), true},
           {leaf(identifier, "com.example.app"), true},
           {leaf(identifier, "com.example.ap"), false},
           {leaf(cdHash, std::string(20, 7)), true},
           {leaf(cdHash, std::string(20, 8)), false},
           {hash(leaf_, 0), true},
           {hash(root, -1), true},
           {hash(root, 0), false},
           {hash(root, 9), false},
           {hash(leaf_, -4), false},
           {matching(certificateOID, mark, exists, "", 1), true},
           {matching(certificateOID, mark), false},
           {matching(certificateOID, mark, absent), true},
           {matching(certificatePolicy, bareOID("1.2.3.4")), false},
           {matching(certificateField, "subject.CN", beginsWith, "iPhone Distr"), true},
           {matching(certificateField, "subject.OU", equal, "ABCDE12345"), true},
           {matching(certificateField, "subject.X"), false},
           {version(equal, "10.2"), true},
           {version(contains, "0."), true},
           {version(endsWith, ".3"), false},
           {version(greater, "9.9"), true},
           {version(lessEqual, "010.2"), true},
           {version(less, "10.2.1"), true},
           {version(greaterEqual, "10.10"), false},
           {matching(infoKey, "Number", equal, "7"), true},
           {matching(infoKey, "Missing", equal, ""), false},
           {matching(infoKey, "Missing", absent), true},
           {matching(entitlement, "on"), true},
           {matching(entitlement, "off"), false},
           {matching(entitlement, "off", absent), true},
           {matching(entitlement, "groups", beginsWith, "b."), true},
           {matching(entitlement, "groups", equal, "c"), false},
           {joined(negation, {leaf(never)}), true},
           {joined(negation, {leaf(always)}), false},
           {joined(conjunction, {leaf(always), leaf(always)}), true},
           {joined(conjunction, {leaf(always), leaf(never)}), false},
           {joined(conjunction, {leaf(never), leaf(always)}), false},
           {joined(disjunction, {leaf(always), leaf(never)}), true},
           {joined(disjunction, {leaf(never), leaf(always)}), true},
           {joined(disjunction, {leaf(never), leaf(never)}), false},
       }) {
    EXPECT_EQ(meets(subject(), expression), isMet) << toolchain::text(expression);
  }
  // Ad-hoc code has no certificates: whatever asks for one is not met.
  auto adHoc = subject();
  adHoc.chain.clear();
  EXPECT_FALSE(meets(adHoc, leaf(anchorHash)));
  EXPECT_FALSE(meets(adHoc, matching(certificateField, "subject.CN")));
  EXPECT_TRUE(meets(adHoc, matching(certificateField, "subject.CN", absent)));
}

/// A disjunction of the same many times, about `count`, and of what comes last.
Expression anyOf(const Expression& each, std::size_t count, Expression last) {
  if (count == 0) return last;
  Expression expression{.operation = Operation::disjunction};
  expression.operands.push_back(anyOf(each, (count - 1) / 2, each));
  expression.operands.push_back(anyOf(each, count / 2, std::move(last)));
  return expression;
}

TEST(RequirementEvaluationTest, CostIsBounded) {
  auto code = subject();
  const auto always = leaf(Operation::always);
  const auto other = matching(Operation::certificateField, "subject.OU", Match::equal, "none");
  EXPECT_TRUE(meets(code, anyOf(other, 1000, always)));
  const std::vector<std::string> organizations(2000, std::string(60, 'a'));
  const auto root = makeRoot("Root");
  code.chain = {makeLeaf(root, {.organizations = organizations}).certificate(), root.certificate()};
  code.info["Long"] = std::string(1 << 15, 'a');
  code.info["Many"] = Array(100000, "a");
  const std::string key = bareOID("1.2.3.4");
  const auto before = std::chrono::steady_clock::now();
  for (const Expression& each :
       {other, matching(Operation::infoKey, "Many", Match::equal, "b"),
        matching(Operation::infoKey, "Long", Match::contains, std::string(1000, 'a') + "b"),
        matching(Operation::certificateOID, key), matching(Operation::certificatePolicy, key),
        leaf(Operation::anchorHash)}) {
    EXPECT_TRUE(meets(code, anyOf(each, 1, always))) << toolchain::text(each).substr(0, 80);
    EXPECT_FALSE(meets(code, anyOf(each, 20000, always))) << toolchain::text(each).substr(0, 80);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
}

/// The vendor's developer programs are recognised by the issuer's mark. We cannot
/// sign as the vendor, so a root of the same name stands in for the vendor's.
TEST(RequirementEvaluationTest, Anchors) {
  const auto chain = makeDeveloperFamily().chain();
  const auto unmarked = signingFamily().root.certificate();
  for (const auto& [name, certificates, isGeneric, isOwn] :
       std::vector<std::tuple<const char*, std::vector<foundation::Certificate>, bool, bool>>{
           {"developer", chain, true, false},
           {"the vendor's own", {chain[0], unmarked, chain[2]}, true, true},
           {"home-made", subject().chain, false, false},
           {"no issuer between", {chain[0], chain[2]}, false, false},
           {"without root", {chain[0], chain[1]}, false, false},
           {"none", {}, false, false},
       }) {
    auto code = subject();
    code.chain = certificates;
    const auto generic = leaf(Operation::anchorAppleGeneric);
    const auto own = leaf(Operation::anchorApple);
    EXPECT_FALSE(meets(code, generic)) << name;
    EXPECT_FALSE(meets(code, own)) << name;
    code.isAppleRoot = toolchain::isNamedLikeAppleRoot;
    EXPECT_EQ(meets(code, generic), isGeneric) << name;
    EXPECT_EQ(meets(code, own), isOwn) << name;
  }
}

TEST(RequirementEvaluationTest, TheVendorsRootsAreKnownByTheirDigests) {
  for (const char* digits : {"b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
                             "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
                             "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"}) {
    auto digest = *foundation::readAt<foundation::SHA256Digest>(bytesOf(fromHex(digits)), 0);
    EXPECT_TRUE(toolchain::isAppleRoot(digest)) << digits;
    digest.back() ^= std::byte{1};
    EXPECT_FALSE(toolchain::isAppleRoot(digest)) << digits;
  }
}

}  // namespace

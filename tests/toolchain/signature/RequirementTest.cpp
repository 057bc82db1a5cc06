#include "foundation/crypto/DER.h"
#include "tests/support/AppFixture.h"
#include "tests/support/Test.h"
#include "toolchain/signature/RequirementEvaluation.h"

namespace {

using foundation::Certificate;
using toolchain::meets;
using toolchain::requirement::Expression;
using toolchain::requirement::Match;
using toolchain::requirement::Operation;

/// An operation with a text, a hash or nothing.
Expression leaf(Operation operation, std::string data = {}, std::int32_t certificate = 0) {
  return {.operation = operation, .certificate = certificate, .data = std::move(data)};
}

Expression joined(Operation operation, std::vector<Expression> operands) {
  return {.operation = operation, .operands = std::move(operands)};
}

/// An operation that looks up a key and compares its value.
Expression matching(Operation operation, std::string key, Match match = Match::exists,
                    std::string value = {}, std::int32_t certificate = 0) {
  return {.operation = operation,
          .certificate = certificate,
          .key = std::move(key),
          .match = match,
          .matchValue = std::move(value)};
}

/// The code that requirements are about.
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

/// The bytes are read as they were written, and every shorter blob is refused, whatever its length
/// says.
void expectRoundTrip(const Expression& expression) {
  const auto blob = toolchain::makeRequirement(expression);
  const auto read = toolchain::parseRequirement(keepForFuzzing("SignatureBlobs", blob));
  ASSERT_TRUE(read) << problemOf(read);
  EXPECT_EQ(toolchain::text(*read), toolchain::text(expression));
  EXPECT_EQ(toolchain::makeRequirement(*read), blob);
  for (std::size_t size = 12; size < blob.size(); size += 4) {
    auto truncated = blob;
    truncated.resize(size);
    truncated[7] = static_cast<std::byte>(size);
    EXPECT_THAT(problemOf(toolchain::parseRequirement(truncated)),
                StartsWith("requirement is truncated at byte "));
  }
}

TEST(RequirementTest, TextBytesAndMeaningOfEveryOperation) {
  using enum Operation;
  using enum Match;
  const auto hash = [](const MadeIdentity& identity) {
    return std::string(textOf(identity.certificate().sha1()));
  };
  const auto& [leaf_, intermediate, root] = signingFamily();
  const std::string rootText = "H\"" + hexOf(hash(root)) + '"';
  const std::string mark = bareOID(kIntermediateMarker);
  const auto version = [](Match match, const char* value) {
    return matching(infoKey, "CFBundleVersion", match, value);
  };
  const auto yes = leaf(always);
  const auto no = leaf(never);
  struct Row {
    std::string text;
    Expression expression;
    bool isMet;
  };
  for (const Row& row : {
           Row{"never", no, false},
           Row{"always", yes, true},
           Row{"anchor apple", leaf(anchorApple), false},
           Row{"identifier \"com.example.app\"", leaf(identifier, "com.example.app"), true},
           Row{"identifier \"com.example.ap\"", leaf(identifier, "com.example.ap"), false},
           Row{"identifier and1", leaf(identifier, "and1"), false},
           Row{"identifier \"and\"", leaf(identifier, "and"), false},
           Row{"identifier \"1a\"", leaf(identifier, "1a"), false},
           Row{"identifier \"a\\\"\\\\\"", leaf(identifier, "a\"\\"), false},
           Row{"cdhash H\"" + repeated("07", 20) + '"', leaf(cdHash, std::string(20, 7)), true},
           Row{"cdhash H\"08\"", leaf(cdHash, "\x08"), false},
           Row{"certificate root = " + rootText, leaf(anchorHash, hash(root), -1), true},
           Row{"certificate leaf = " + rootText, leaf(anchorHash, hash(root)), false},
           Row{"certificate 9 = " + rootText, leaf(anchorHash, hash(root), 9), false},
           Row{"certificate -4 = " + rootText, leaf(anchorHash, hash(root), -4), false},
           Row{"certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */",
               matching(certificateOID, mark, exists, "", 1), true},
           Row{"certificate leaf[field.1.2.840.113635.100.6.2.1] /* exists */",
               matching(certificateOID, mark), false},
           Row{"certificate leaf[field.1.2.840.113635.100.6.2.1] absent",
               matching(certificateOID, mark, absent), true},
           Row{"certificate leaf[policy.1.2.3.4] /* exists */",
               matching(certificatePolicy, bareOID("1.2.3.4")), false},
           Row{"certificate leaf[subject.CN] = \"iPhone Distr\"*",
               matching(certificateField, "subject.CN", beginsWith, "iPhone Distr"), true},
           Row{"certificate leaf[subject.OU] = ABCDE12345",
               matching(certificateField, "subject.OU", equal, "ABCDE12345"), true},
           Row{"certificate leaf[subject.X] /* exists */", matching(certificateField, "subject.X"),
               false},
           Row{"info[CFBundleVersion] = \"10.2\"", version(equal, "10.2"), true},
           Row{"info[CFBundleVersion] ~ \"0.\"", version(contains, "0."), true},
           Row{"info[CFBundleVersion] = *\".3\"", version(endsWith, ".3"), false},
           Row{"info[CFBundleVersion] > \"9.9\"", version(greater, "9.9"), true},
           Row{"info[CFBundleVersion] <= \"010.2\"", version(lessEqual, "010.2"), true},
           Row{"info[CFBundleVersion] < \"10.2.1\"", version(less, "10.2.1"), true},
           Row{"info[CFBundleVersion] >= \"10.10\"", version(greaterEqual, "10.10"), false},
           Row{"info[Number] = \"7\"", matching(infoKey, "Number", equal, "7"), true},
           Row{"info[Missing] = \"\"", matching(infoKey, "Missing", equal, ""), false},
           Row{"info[Missing] absent", matching(infoKey, "Missing", absent), true},
           Row{"entitlement[on] /* exists */", matching(entitlement, "on"), true},
           Row{"entitlement[off] /* exists */", matching(entitlement, "off"), false},
           Row{"entitlement[off] absent", matching(entitlement, "off", absent), true},
           Row{"entitlement[groups] = \"b.\"*", matching(entitlement, "groups", beginsWith, "b."),
               true},
           Row{"entitlement[groups] = c", matching(entitlement, "groups", equal, "c"), false},
           Row{"! never", joined(negation, {no}), true},
           Row{"! always", joined(negation, {yes}), false},
           Row{"always and always", joined(conjunction, {yes, yes}), true},
           Row{"always and never", joined(conjunction, {yes, no}), false},
           Row{"never and always", joined(conjunction, {no, yes}), false},
           Row{"always or never", joined(disjunction, {yes, no}), true},
           Row{"never or never", joined(disjunction, {no, no}), false},
           Row{"never or always and always",
               joined(disjunction, {no, joined(conjunction, {yes, yes})}), true},
           Row{"(always or always) and never",
               joined(conjunction, {joined(disjunction, {yes, yes}), no}), false},
       }) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(toolchain::text(row.expression), row.text);
    EXPECT_EQ(meets(subject(), row.expression), row.isMet);
    expectRoundTrip(row.expression);
  }
  // Ad-hoc code has no certificates: whatever asks for one is not met.
  auto adHoc = subject();
  adHoc.chain.clear();
  adHoc.isAppleRoot = toolchain::isNamedLikeAppleRoot;
  EXPECT_FALSE(meets(adHoc, leaf(anchorAppleGeneric)));
  EXPECT_FALSE(meets(adHoc, leaf(anchorHash)));
  EXPECT_FALSE(meets(adHoc, matching(certificateField, "subject.CN")));
  EXPECT_TRUE(meets(adHoc, matching(certificateField, "subject.CN", absent)));
}

/// The vendor's developer programs are recognised by the issuer's mark. The test makes a root
/// certificate with the name of the vendor's.
TEST(RequirementTest, IdentitiesAreNamedByTheirAnchorOrTheLastOfTheirOrganization) {
  const std::string name = "iPhone Developer: J\xc3\xb6rg (ABCDE12345) and more xyz";
  const auto developer = makeFamily({.commonName = name}, makeRoot("Apple Root CA - G3")).chain();
  const auto chain = makeFamily().chain();
  const MadeIdentity root = makeRoot("Other CA");
  const auto issuer =
      makeLeaf(root, {.commonName = "Issuer", .organizations = {"Example Corp"}}).certificate();
  const auto hash = [](const std::string& position, const Certificate& certificate) {
    return "certificate " + position + " = H\"" + hexOf(certificate.sha1()) + '"';
  };
  struct Row {
    const char* name;
    std::vector<Certificate> chain;
    std::string requirement;
    bool isGeneric = false;
    bool isOwn = false;
  };
  for (const Row& row : {
           Row{"developer", developer,
               "anchor apple generic and certificate leaf[subject.CN] = 0x" + hexOf(name) +
                   " and certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */",
               true},
           Row{"the vendor's own: an issuer without mark",
               {developer[0], chain[2], developer[2]},
               hash("leaf", developer[0]),
               true,
               true},
           Row{"no issuer between", {developer[0], developer[2]}, hash("leaf", developer[0])},
           Row{"the root is not the vendor's",
               {developer[0], developer[1], developer[1]},
               hash("leaf", developer[0])},
           Row{"home-made", chain, hash("leaf", chain[0])},
           Row{"the leaf is the root", {chain[0]}, hash("root", chain[0])},
           Row{"an issuer of the same", {chain[0], issuer, root.certificate()}, hash("1", issuer)},
           Row{"a root of the same", {chain[0], issuer}, hash("root", issuer)},
       }) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(toolchain::text(toolchain::defaultRequirement("x", row.chain)),
              "identifier x and " + row.requirement);
    auto code = subject();
    code.chain = row.chain;
    const auto generic = leaf(Operation::anchorAppleGeneric);
    const auto own = leaf(Operation::anchorApple);
    EXPECT_FALSE(meets(code, generic));
    EXPECT_FALSE(meets(code, own));
    code.isAppleRoot = toolchain::isNamedLikeAppleRoot;
    EXPECT_EQ(meets(code, generic), row.isGeneric);
    EXPECT_EQ(meets(code, own), row.isOwn);
  }
  EXPECT_EQ(textOf(toolchain::makeRequirementSet(
                toolchain::defaultRequirement("com.example.app", developer))),
            fromHex("fade0c01 000000b8 00000001 00000003 00000014"
                    "fade0c00 000000a4 00000001 00000006 00000002 0000000f") +
                "com.example.app" +
                fromHex("00 00000006 0000000f 00000006 0000000b 00000000 0000000a") + "subject.CN" +
                fromHex("0000 00000001 00000031") + name +
                fromHex("000000 0000000e 00000001 0000000a 2a864886f76364060201 0000 00000000"));
}

TEST(RequirementTest, DamageIsNamed) {
  for (const auto& [digits, complaint] : std::vector<std::pair<const char*, const char*>>{
           {"fade0c00 00000008", "requirement: kind 0 is unknown"},
           {"fade0c00 00000010 00000002 00000001", "requirement: kind 2 is unknown"},
           {"fade0c00 00000010 00000001 0000000c", "requirement: operation 12 is unknown"},
           {"fade0c00 00000018 00000001 0000000a 00000000 00000009",
            "requirement: match 9 is unknown"},
           {"fade0c00 00000014 00000001 00000001 00000000",
            "requirement continues after its expression, at byte 4"},
           {"fade0c02 00000008", "requirement: blob magic is 0xfade0c02, not 0xfade0c00"},
           {"fade0c01 00000008", "requirements: count 0 does not fit the blob"},
           {"fade0c01 0000000c 00000011", "requirements: count 17 does not fit the blob"},
           {"fade0c01 0000002c 00000002 00000003 0000001c 00000003 0000001c"
            "fade0c00 00000010 00000001 00000001",
            "requirement 1 of 2: a second one of type 3"},
           {"fade0c01 00000014 00000001 00000003 000003e7",
            "requirement 0 of 1 lies outside the blob"},
       }) {
    const std::string bytes = fromHex(digits);
    const Bytes blob = keepForFuzzing("SignatureBlobs", bytesOf(bytes));
    EXPECT_EQ(bytes[3] == 1 ? problemOf(toolchain::parseRequirementSet(blob))
                            : problemOf(toolchain::parseRequirement(blob)),
              complaint);
  }
  EXPECT_EQ(hexOf(toolchain::emptyRequirementSet()), "fade0c010000000c00000000");
}

TEST(RequirementTest, NestingHasALimit) {
  Expression deep = leaf(Operation::always);
  for (int i = 0; i < 128; ++i) deep = joined(Operation::negation, {std::move(deep)});
  EXPECT_TRUE(toolchain::parseRequirement(toolchain::makeRequirement(deep)));
  deep = joined(Operation::negation, {std::move(deep)});
  EXPECT_EQ(problemOf(toolchain::parseRequirement(toolchain::makeRequirement(deep))),
            "requirement is nested too deeply");
}

/// A disjunction of the same many times, about `count`, and of what comes last.
Expression anyOf(const Expression& each, std::size_t count, Expression last) {
  if (count == 0) return last;
  Expression expression{.operation = Operation::disjunction};
  expression.operands.push_back(anyOf(each, (count - 1) / 2, each));
  expression.operands.push_back(anyOf(each, count / 2, std::move(last)));
  return expression;
}

TEST(RequirementTest, CostIsBounded) {
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

TEST(RequirementTest, TheVendorsRootsAreKnownByTheirDigests) {
  std::string digest = fromHex("63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179");
  for (const bool isKnown : {true, false}) {
    const auto read = foundation::readAt<foundation::SHA256Digest>(bytesOf(digest), 0);
    EXPECT_EQ(toolchain::isAppleRoot(*read), isKnown);
    digest.back() ^= 1;
  }
}

}  // namespace

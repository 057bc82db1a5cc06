#include "tests/support/Identities.h"
#include "tests/support/Test.h"
#include "tests/toolchain/signature/Expressions.h"
#include "toolchain/signature/Requirement.h"

namespace {

using foundation::Certificate;

TEST(RequirementTest, DeveloperIdentitiesAreNamedByLeafAndIssuersMark) {
  const std::string name = "iPhone Developer: J\xc3\xb6rg (ABCDE12345) and more xyz";
  ASSERT_EQ(name.size(), 49U);
  const auto expression =
      toolchain::defaultRequirement("com.example.app", makeDeveloperFamily(name).chain());
  EXPECT_EQ(hexOf(toolchain::makeRequirementSet(expression)),
            "fade0c01000000b8000000010000000300000014"
            "fade0c00000000a400000001"
            "00000006"
            "000000020000000f" +
                hexOf("com.example.app") +
                "00"
                "000000060000000f"
                "000000060000000b000000000000000a" +
                hexOf("subject.CN") +
                "0000"
                "0000000100000031" +
                hexOf(name) +
                "000000"
                "0000000e000000010000000a2a864886f76364060201"
                "000000000000");
  EXPECT_EQ(toolchain::text(expression),
            "identifier \"com.example.app\" and anchor apple generic and certificate "
            "leaf[subject.CN] = 0x" +
                hexOf(name) + " and certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */");
}

TEST(RequirementTest, OtherIdentitiesAreNamedByTheLastCertificateOfTheirOrganization) {
  const auto chain = makeFamily().chain();
  const auto developers = makeDeveloperFamily().chain();
  const MadeIdentity root = makeRoot("Other CA");
  const auto issuer =
      makeLeaf(root, {.commonName = "Issuer", .organizations = {"Example Corp"}}).certificate();
  struct Row {
    const char* name;
    std::vector<Certificate> chain;
    const char* position;
    Certificate named;
  };
  for (const Row& row : {
           Row{"the leaf alone", chain, "leaf", chain[0]},
           Row{"the leaf is the root", {chain[0]}, "root", chain[0]},
           Row{"an issuer of the same", {chain[0], issuer, root.certificate()}, "1", issuer},
           Row{"a root of the same", {chain[0], issuer}, "root", issuer},
           Row{"an issuer without mark",
               {developers[0], chain[2], developers[2]},
               "leaf",
               developers[0]},
           Row{"no issuer between", {developers[0], developers[2]}, "leaf", developers[0]},
           Row{"the name is the issuer's",
               {developers[0], developers[1], developers[1]},
               "leaf",
               developers[0]},
       }) {
    EXPECT_EQ(toolchain::text(toolchain::defaultRequirement("x", row.chain)),
              std::string("identifier x and certificate ") + row.position + " = H\"" +
                  hexOf(row.named.sha1()) + '"')
        << row.name;
  }
}

TEST(RequirementTest, TextAndBytesOfEveryOperation) {
  const auto a = leaf(Operation::identifier, "a");
  const auto b = leaf(Operation::identifier, "b");
  const auto version = [](Match match) {
    return matching(Operation::infoKey, "CFBundleVersion", match, "17");
  };
  for (const auto& [expression, text] : std::vector<std::pair<Expression, std::string>>{
           {leaf(Operation::always), "always"},
           {leaf(Operation::never), "never"},
           {leaf(Operation::anchorApple), "anchor apple"},
           {leaf(Operation::identifier, "and"), "identifier \"and\""},
           {leaf(Operation::identifier, "1a"), "identifier \"1a\""},
           {leaf(Operation::identifier, "a\"\\"), "identifier \"a\\\"\\\\\""},
           {leaf(Operation::cdHash, "\x01"), "cdhash H\"01\""},
           {leaf(Operation::anchorHash, "\x2a\x2b", -1), "certificate root = H\"2a2b\""},
           {joined(Operation::negation, {a}), "! identifier a"},
           {joined(Operation::disjunction, {a, joined(Operation::conjunction, {a, b})}),
            "identifier a or identifier a and identifier b"},
           {joined(Operation::conjunction, {joined(Operation::disjunction, {a, b}), b}),
            "(identifier a or identifier b) and identifier b"},
           {version(Match::equal), "info[CFBundleVersion] = \"17\""},
           {version(Match::contains), "info[CFBundleVersion] ~ \"17\""},
           {version(Match::endsWith), "info[CFBundleVersion] = *\"17\""},
           {version(Match::less), "info[CFBundleVersion] < \"17\""},
           {version(Match::greater), "info[CFBundleVersion] > \"17\""},
           {version(Match::lessEqual), "info[CFBundleVersion] <= \"17\""},
           {version(Match::greaterEqual), "info[CFBundleVersion] >= \"17\""},
           {matching(Operation::entitlement, "get-task-allow", Match::absent),
            "entitlement[get-task-allow] absent"},
           {matching(Operation::certificateField, "subject.OU", Match::beginsWith, "T"),
            "certificate leaf[subject.OU] = T*"},
           {matching(Operation::certificatePolicy, "\x2a\x03"),
            "certificate leaf[policy.1.2.3] /* exists */"},
       }) {
    SCOPED_TRACE(text);
    EXPECT_EQ(toolchain::text(expression), text);
    const auto blob = toolchain::makeRequirement(expression);
    const auto read = toolchain::parseRequirement(keepForFuzzing("SignatureBlobs", blob));
    ASSERT_TRUE(read) << problemOf(read);
    EXPECT_EQ(toolchain::text(*read), text);
    EXPECT_EQ(toolchain::makeRequirement(*read), blob);
    // Every shorter blob is refused, whatever its length says.
    for (std::size_t size = 12; size < blob.size(); size += 4) {
      auto truncated = blob;
      truncated.resize(size);
      truncated[7] = static_cast<std::byte>(size);
      EXPECT_THAT(problemOf(toolchain::parseRequirement(truncated)),
                  StartsWith("requirement is truncated at byte "))
          << size;
    }
  }
}

TEST(RequirementTest, DamageIsNamed) {
  namespace magic = toolchain::magic;
  struct Row {
    std::vector<std::uint32_t> words;
    const char* complaint;
    std::uint32_t magic = magic::kRequirement;
  };
  for (const Row& row : {
           Row{{}, "requirement: kind 0 is unknown"},
           Row{{2, 1}, "requirement: kind 2 is unknown"},
           Row{{1, 12}, "requirement: operation 12 is unknown"},
           Row{{1, 10, 0, 9}, "requirement: match 9 is unknown"},
           Row{{1, 1, 0}, "requirement continues after its expression, at byte 4"},
           Row{{}, "requirement: blob magic is 0xfade0c02, not 0xfade0c00", magic::kCodeDirectory},
           Row{{}, "requirements: count 0 does not fit the blob", magic::kRequirementSet},
           Row{{17}, "requirements: count 17 does not fit the blob", magic::kRequirementSet},
           Row{{2, 3, 28, 3, 28, magic::kRequirement, 16, 1, 1},
               "requirement 1 of 2: a second one of type 3",
               magic::kRequirementSet},
           Row{{1, 3, 999}, "requirement 0 of 1 lies outside the blob", magic::kRequirementSet},
       }) {
    toolchain::ByteWriter payload;
    for (const auto word : row.words) payload.u32(word);
    const auto blob = toolchain::makeBlob(row.magic, payload.bytes());
    EXPECT_EQ(row.magic == magic::kRequirementSet
                  ? problemOf(toolchain::parseRequirementSet(blob))
                  : problemOf(toolchain::parseRequirement(keepForFuzzing("SignatureBlobs", blob))),
              row.complaint);
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

}  // namespace

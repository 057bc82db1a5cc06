#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/toolchain/support/Resigning.h"
#include "tests/toolchain/support/SignedAppFixture.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"
#include "toolchain/verify/Verification.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using foundation::bytesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using toolchain::Verdict;

std::string blob(std::uint32_t magic, std::string_view payload) {
  return std::string(foundation::textOf(toolchain::makeBlob(magic, bytesOf(payload))));
}

class VerifyTest : public SignedAppTest {};

/// Signatures that are whole in themselves but say something that must not be.
TEST_F(VerifyTest, WrongSignaturesAreRefused) {
  using Parts = test::SignatureParts;
  namespace magic = toolchain::magic;
  const auto stranger = test::makeFamily({.organizationalUnit = "OTHERTEAM1"});
  const auto everyDirectory = [](auto change) {
    return [change](Parts& parts) { std::ranges::for_each(parts.directories, change); };
  };
  const auto everyFile = [](auto change) {
    return [change](Parts& parts) { std::ranges::for_each(parts.files, change); };
  };
  struct Row {
    const char* name;
    std::function<void(Parts&)> change;
    const char* cause;
    const char* reason = kInvalidSignature;
  };
  const std::vector<Row> rows{
      {"no identifier", everyDirectory([](auto& fields) { fields.identifier.clear(); }),
       "has no identifier"},
      {"identifiers differ", [](Parts& parts) { parts.directories[1].identifier = "other"; },
       "CodeDirectory (sha256) does not agree with the primary one"},
      {"teams differ", [](Parts& parts) { parts.directories[1].teamIdentifier = "OTHER"; },
       "does not agree"},
      {"slices differ",
       everyDirectory([](auto& fields) { fields.identifier = "com.example.other"; }),
       "the slices have identifiers"},
      {"strange page size", [](Parts& parts) { parts.directories[0].pageShift = 13; },
       "page size 2^13"},
      {"part of the code", everyDirectory([](auto& fields) { fields.codeLimit -= 4096; }),
       "where the signature begins"},
      {"short executable segment",
       everyDirectory([](auto& fields) { fields.execSegmentLimit -= 1; }), "is not __TEXT"},
      {"no main binary",
       everyDirectory([](auto& fields) { fields.execSegmentFlags &= ~std::uint64_t{1}; }),
       "executable segment flags 0x10 are not 0x11"},
      {"debugging not asked for",
       [](Parts& parts) {
         parts.blobs.erase(5);
         parts.blobs.erase(7);
       },
       "executable segment flags 0x11 are not 0x1"},
      {"blob without hash", [](Parts& parts) { parts.uncovered = {7}; }, "does not cover slot 7"},
      {"hash without blob", [](Parts& parts) { parts.dangling = {6}; },
       "covers slot 6, which is not there"},
      {"a blob that nothing covers",
       [](Parts& parts) {
         parts.blobs[0x2000] = blob(magic::kEntitlements, "");
         parts.uncovered = {0x2000};
       },
       "slot 0x2000 is not one"},
      {"Info.plist not covered", everyFile([](auto& files) { files.erase(1); }),
       "does not cover Info.plist", kInvalidInfo},
      {"seal not covered", everyFile([](auto& files) { files.erase(3); }),
       "does not cover the resource seal", kInvalidSeal},
      {"unknown flags", everyDirectory([](auto& fields) { fields.flags |= 0x40000; }),
       "flags 0x40000 are unknown"},
      {"a blob without content", [](Parts& parts) { parts.blobs[6] = blob(magic::kWrapper, ""); },
       "slot 6 has no content"},
      {"identification",
       [](Parts& parts) {
         parts.blobs[0x10001] = blob(magic::kWrapper, "x");
         parts.uncovered = {0x10001};
       },
       "slot 0x10001 is not one"},
      {"ticket",
       [](Parts& parts) {
         parts.blobs[0x10002] = blob(magic::kWrapper, "x");
         parts.uncovered = {0x10002};
       },
       "slot 0x10002 is not one"},
      {"blob of another kind",
       [](Parts& parts) { parts.blobs[2] = blob(magic::kEntitlements, ""); }, "slot 2: blob magic"},
      {"entitlements no list",
       [](Parts& parts) { parts.blobs[5] = blob(magic::kEntitlements, "text"); }, "entitlements"},
      {"entitlements go on",
       [](Parts& parts) {
         parts.blobs[5] = blob(magic::kEntitlements, "<plist><dict/></plist><plist/>");
       },
       "entitlements: XML property list: goes on after its end"},
      {"entitlements say something twice",
       [](Parts& parts) {
         parts.blobs[5] =
             blob(magic::kEntitlements,
                  "<plist><dict><key>a</key><true/><key>a</key><true/></dict></plist>");
       },
       "entitlements: XML property list: a dictionary has a key twice"},
      {"entitlements in binary form",
       [](Parts& parts) { parts.blobs[5] = blob(magic::kEntitlements, "bplist00"); },
       "entitlements: they are not XML"},
      {"entitlements no dictionary",
       [](Parts& parts) { parts.blobs[5] = blob(magic::kEntitlements, "<plist><array/></plist>"); },
       "entitlements: they are not a dictionary"},
      {"entitlements' DER form of old",
       [](Parts& parts) {
         parts.blobs[7] = blob(magic::kEntitlementsDER, std::string("\x31\x00", 2));
       },
       "entitlements in DER form"},
      {"forms differ",
       [](Parts& parts) {
         parts.blobs[7] = foundation::textOf(toolchain::entitlementsDERBlob(
             *toolchain::makeEntitlements({{"get-task-allow", true}})));
       },
       "does not describe what the XML form does"},
      {"malformed requirement",
       [](Parts& parts) {
         const std::string cut = blob(magic::kRequirement, std::string("\0\0\0\1\0\0\0\6", 8));
         parts.blobs[2] = foundation::textOf(toolchain::makeSuperBlob(
             magic::kRequirementSet, {{toolchain::requirement::kDesignated, bytesOf(cut)}}));
       },
       "requirements"},
      {"says ad hoc, has a CMS",
       everyDirectory([](auto& fields) { fields.flags |= toolchain::codeflag::kAdHoc; }),
       "code signed ad hoc has a CMS signature"},
      {"empty CMS", [](Parts& parts) { parts.message = ""; }, "the CMS signature is empty"},
      {"no CMS", [](Parts& parts) { parts.withWrapper = false; }, "there is no CMS signature"},
      {"CMS of rubbish", [](Parts& parts) { parts.message = "rubbish"; }, "signature message"},
      {"no list of cdhashes tells of both",
       [](Parts& parts) { parts.withHashPlist = parts.withHashList = false; },
       "no list of hashes covers the alternate"},
      {"a list tells of one", [](Parts& parts) { parts.listed = 1; },
       "the list of cdhashes is not that of the 2 CodeDirectories"},
      {"the other list tells of one",
       [](Parts& parts) {
         parts.listed = 1;
         parts.withHashPlist = false;
       },
       "the list of full digests is not that of the 2 CodeDirectories"},
      {"no root", [](Parts& parts) { parts.certificates.pop_back(); }, "Test Root CA"},
      {"other team", everyDirectory([](auto& fields) { fields.teamIdentifier = "OTHERTEAM1"; }),
       "team identifier \"OTHERTEAM1\" is not the certificate's"},
      {"other people's chain",
       [&](Parts& parts) {
         parts.certificates = {stranger.leaf.certificate(), stranger.intermediate.certificate(),
                               stranger.root.certificate()};
       },
       "the signer's certificate is not among the 3"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restore();
    auto parts = test::takeApart(executable());
    row.change(parts);
    test::putTogether(executable(), parts, test::signingFamily());
    const Verdict verdict = verify();
    EXPECT_EQ(verdict.status, 1);
    ASSERT_FALSE(verdict.statements.empty());
    EXPECT_EQ(verdict.statements[0], line(row.reason));
    EXPECT_THAT(verdict.statements.back(), HasSubstr(row.cause));
  }
}

/// The second slice is whole in itself, but somebody else's.
TEST_F(VerifyTest, SlicesOfDifferentOriginAreRefused) {
  using Parts = test::SignatureParts;
  const auto stranger = test::makeFamily();
  toolchain::requirement::Expression debugged;
  debugged.operation = toolchain::requirement::Operation::entitlement;
  debugged.key = "get-task-allow";
  const struct {
    const char* name;
    std::function<void(Parts& first, Parts& second)> change;
    const test::Family& family;
    const char* cause;
  } rows[] = {
      {"ad hoc",
       [](Parts&, Parts& second) {
         for (auto& fields : second.directories) fields.flags |= toolchain::codeflag::kAdHoc;
         second.blobs.erase(2);
         second.message = "";
       },
       test::signingFamily(), "and none, being signed ad hoc"},
      {"another signer of the same team",
       [&](Parts&, Parts& second) {
         second.blobs.erase(2);
         second.certificates = {stranger.leaf.certificate(), stranger.intermediate.certificate(),
                                stranger.root.certificate()};
       },
       stranger, "the slices have signers"},
      {"not what the first one asks for",
       [&](Parts& first, Parts& second) {
         first.blobs[2] = foundation::textOf(toolchain::makeRequirementSet(debugged));
         for (auto& fields : second.directories) fields.execSegmentFlags = 1;
         second.blobs.erase(5);
         second.blobs.erase(7);
       },
       test::signingFamily(), "does not meet the designated requirement of the first one"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restore();
    auto first = test::takeApart(executable(), 0);
    auto second = test::takeApart(executable(), 1);
    row.change(first, second);
    test::putTogether(executable(), first, test::signingFamily(), 0);
    test::putTogether(executable(), second, row.family, 1);
    const Verdict verdict = verify();
    EXPECT_EQ(verdict.status, 1);
    EXPECT_EQ(verdict.statements[0], line(kInvalidSignature));
    EXPECT_THAT(verdict.statements.back(), HasSubstr(row.cause));
  }
}

/// What older releases of the platform's own tool wrote: one page size, no DER form, no lists of
/// hashes, an early CodeDirectory.
TEST_F(VerifyTest, OlderSignaturesAreAccepted) {
  for (const std::size_t index : {0U, 1U}) {
    auto parts = test::takeApart(executable(), index);
    parts.directories.resize(1);
    parts.files.resize(1);
    parts.directories[0].pageShift = 12;
    parts.blobs.erase(7);
    parts.withHashPlist = parts.withHashList = false;
    test::putTogether(executable(), parts, test::signingFamily(), index);
  }
  EXPECT_THAT(verify().statements, ElementsAre(line("valid on disk"), testing::_));
}

/// What the vendor of the platform signs carries the team of others, and no signed attributes if it
/// is old.
TEST_F(VerifyTest, CodeOfTheVendorIsAccepted) {
  const auto vendor =
      test::makeFamily({.commonName = "Software Signing", .organizationalUnit = "Apple Software"});
  const fs::path library = app() / "Frameworks/libf.dylib";
  for (const bool isOld : {false, true}) {
    auto parts = test::takeApart(library);
    parts.directories.resize(1);
    parts.files.assign(1, {});
    parts.directories[0].teamIdentifier = "59GAB85EFG";
    parts.directories[0].hashType = isOld ? toolchain::HashType::sha1 : toolchain::HashType::sha256;
    parts.withAttributes = !isOld;
    parts.certificates = {vendor.leaf.certificate(), vendor.intermediate.certificate(),
                          vendor.root.certificate()};
    parts.blobs[2] = foundation::textOf(
        toolchain::makeRequirementSet(toolchain::defaultRequirement("libf", parts.certificates)));
    test::putTogether(library, parts, vendor);
    EXPECT_THAT(toolchain::verify({.code = library}).statements,
                ElementsAre(library.string() + ": valid on disk", testing::_))
        << isOld;
  }
}

/// Everything is hashed as it should be, but a loader would map other bytes.
TEST_F(VerifyTest, SegmentsThatOverlapAreRefused) {
  constexpr std::size_t kSizeInFile = 36;
  const auto parts = test::takeApart(executable());
  std::string file = test::contentsOf(executable());
  test::poke(file, slice(0).file.offset + slice(0).segments.front().commandOffset + kSizeInFile, 1);
  writeFile(executable(), file);
  test::putTogether(executable(), parts, test::signingFamily());
  const Verdict verdict = verify();
  EXPECT_EQ(verdict.statements[0], line(kStrict));
  EXPECT_EQ(verdict.statements.back(),
            "Cause: segment __TEXT at 0 begins before the end of __PAGEZERO at 1");
}

TEST_F(VerifyTest, AnUnmetRequirementHasAStatusOfItsOwn) {
  toolchain::requirement::Expression other;
  other.operation = toolchain::requirement::Operation::identifier;
  other.data = "com.example.other";
  auto parts = test::takeApart(executable(), 1);
  parts.blobs[2] = foundation::textOf(toolchain::makeRequirementSet(other));
  test::putTogether(executable(), parts, test::signingFamily(), 1);
  const Verdict verdict = verify();
  EXPECT_EQ(verdict.status, 3);
  EXPECT_THAT(verdict.statements, ElementsAre(line("does not satisfy its designated Requirement")));
}

TEST(SignatureFaultTest, TheErrorCarriesItsKind) {
  using toolchain::Fault;
  const struct {
    const char* name;
    foundation::Error error;
    Fault fault;
    std::string detail;
  } rows[] = {
      {"with detail", toolchain::faultError(Fault::nestedCode, "why"), Fault::nestedCode, "why"},
      {"without", toolchain::faultError(Fault::nestedCode), Fault::nestedCode, ""},
      {"in a place", toolchain::within("x", toolchain::faultError(Fault::nestedCode, "why")),
       Fault::nestedCode, "x: why"},
      {"in a place, without", toolchain::within("x", toolchain::faultError(Fault::nestedCode)),
       Fault::nestedCode, "x"},
      {"another's text that reads like a fault",
       toolchain::failure(std::string(kSealedResource) + ": why"), Fault::objectFormat,
       std::string(kSealedResource) + ": why"},
  };
  for (const auto& row : rows) {
    const auto parts = toolchain::faultParts(row.error, Fault::objectFormat);
    EXPECT_EQ(parts.fault, row.fault) << row.name;
    EXPECT_EQ(parts.detail, row.detail) << row.name;
  }
}

}  // namespace

#include "tests/support/MachOFixture.h"
#include "tests/toolchain/support/Resigning.h"
#include "tests/toolchain/support/SignedAppFixture.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"
#include "toolchain/verify/Verification.h"

namespace {

namespace magic = toolchain::magic;
using toolchain::CodeDirectoryFields;
using toolchain::Fault;
using toolchain::requirement::Expression;
using toolchain::requirement::Operation;

using Parts = SignatureParts;
using Change = std::function<void(Parts&)>;

std::string blob(std::uint32_t magic, std::string_view payload) {
  return std::string(textOf(toolchain::makeBlob(magic, bytesOf(payload))));
}

Change everyDirectory(const std::function<void(CodeDirectoryFields&)>& change) {
  return [=](Parts& parts) { std::ranges::for_each(parts.directories, change); };
}

/// Neither directory covers Info.plist (1) or the seal (3).
Change withoutHashOfFile(std::uint32_t slot) {
  return [=](Parts& parts) {
    for (auto& files : parts.files) files.erase(slot);
  };
}

Change blobIs(std::uint32_t slot, std::uint32_t magic, std::string_view payload) {
  return [slot, content = blob(magic, payload)](Parts& parts) { parts.blobs[slot] = content; };
}

/// A blob that no hash covers.
Change foreignBlob(std::uint32_t slot) {
  return [=](Parts& parts) {
    parts.blobs[slot] = blob(magic::kWrapper, "x");
    parts.uncovered = {slot};
  };
}

Change entitlementsAre(std::string_view text) { return blobIs(5, magic::kEntitlements, text); }

/// The list of cdhashes is a property list in an octet string.
Change hashListIs(std::string value) {
  return [value = std::move(value)](Parts& parts) { parts.hashPlist = value; };
}

void setRequirement(Parts& parts, const Expression& designated) {
  parts.blobs[2] = textOf(toolchain::makeRequirementSet(designated));
}

/// Not signed for debugging, whatever the entitlements said.
void withoutEntitlements(Parts& parts) {
  parts.blobs.erase(5);
  parts.blobs.erase(7);
}

class VerificationTest : public SignedAppTest {
 protected:
  /// The change to a whole signature is found for this reason and cause.
  void expectRefusal(const char* cause, Fault fault = Fault::invalidSignature) const {
    const auto verdict = verify();
    EXPECT_EQ(verdict.status, 1);
    ASSERT_FALSE(verdict.statements.empty());
    EXPECT_EQ(verdict.statements[0], line(fault));
    EXPECT_THAT(verdict.statements.back(), HasSubstr(cause));
  }
  void resign(const Parts& parts, std::size_t slice = 0,
              const Family& family = signingFamily()) const {
    putTogether(executable_, parts, family, slice);
  }
};

/// Signatures that are whole in themselves but say something that must not be.
TEST_F(VerificationTest, WrongSignaturesAreRefused) {
  const auto stranger = makeFamily({.organizationalUnit = "OTHERTEAM1"});
  struct Row {
    const char* name;
    Change change;
    const char* cause;
    Fault fault = Fault::invalidSignature;
  };
  const std::vector<Row> rows{
      {"no identifier", everyDirectory([](auto& fields) { fields.identifier.clear(); }),
       "has no identifier"},
      {"identifiers differ", [](Parts& parts) { parts.directories[1].identifier = "other"; },
       "CodeDirectory (sha256) does not agree with the primary one"},
      {"teams differ", [](Parts& parts) { parts.directories[1].teamIdentifier = "OTHER"; },
       "does not agree"},
      {"slices differ", everyDirectory([](auto& fields) { fields.identifier = "com.other"; }),
       "the slices have identifiers \"com.other\" and \"com.example.app\""},
      {"strange page size", [](Parts& parts) { parts.directories[0].pageShift = 13; },
       "page size 2^13 is not one that devices accept"},
      {"part of the code", everyDirectory([](auto& fields) { fields.codeLimit -= 4096; }),
       "where the signature begins"},
      {"short executable segment",
       everyDirectory([](auto& fields) { fields.execSegmentLimit -= 1; }), "is not __TEXT"},
      {"no main binary",
       everyDirectory([](auto& fields) { fields.execSegmentFlags &= ~std::uint64_t{1}; }),
       "executable segment flags 0x10 are not 0x11"},
      {"debugging not asked for", withoutEntitlements, "executable segment flags 0x11 are not 0x1"},
      {"unknown flags", everyDirectory([](auto& fields) { fields.flags |= 0x40000; }),
       "flags 0x40000 are unknown"},
      {"blob without hash", [](Parts& parts) { parts.uncovered = {7}; }, "does not cover slot 7"},
      {"hash without blob", [](Parts& parts) { parts.dangling = {6}; },
       "covers slot 6, which is not there"},
      {"an unknown slot", foreignBlob(0x2000), "slot 0x2000 is not one that signatures have"},
      {"identification", foreignBlob(0x10001), "slot 0x10001 is not one"},
      {"ticket", foreignBlob(0x10002), "slot 0x10002 is not one"},
      {"Info.plist not covered", withoutHashOfFile(1), "does not cover Info.plist",
       Fault::invalidInfoPlist},
      {"seal not covered", withoutHashOfFile(3), "does not cover the resource seal",
       Fault::invalidResourceDirectory},
      {"a blob without content", blobIs(6, magic::kWrapper, ""), "slot 6 has no content"},
      {"blob of another kind", blobIs(2, magic::kEntitlements, ""), "slot 2: blob magic"},
      {"entitlements are text", entitlementsAre("text"), "entitlements: "},
      {"entitlements go on", entitlementsAre("<plist><dict/></plist><plist/>"),
       "entitlements: XML property list: goes on after its end"},
      {"entitlements say something twice",
       entitlementsAre("<plist><dict><key>a</key><true/><key>a</key><true/></dict></plist>"),
       "entitlements: XML property list: a dictionary has a key twice"},
      {"entitlements in binary form", entitlementsAre("bplist00"),
       "entitlements: they are not XML"},
      {"entitlements are an array", entitlementsAre("<plist><array/></plist>"),
       "entitlements: they are not a dictionary"},
      {"entitlements' DER form of old",
       blobIs(7, magic::kEntitlementsDER, std::string_view("\x31\x00", 2)),
       "entitlements in DER form"},
      {"forms differ",
       [](Parts& parts) {
         parts.blobs[7] = textOf(toolchain::entitlementsDERBlob(
             *toolchain::makeEntitlements({{"get-task-allow", true}})));
       },
       "entitlements: the DER form does not describe what the XML form does"},
      {"malformed requirement",
       [](Parts& parts) {
         const std::string cut = blob(magic::kRequirement, std::string("\0\0\0\1\0\0\0\6", 8));
         parts.blobs[2] = textOf(toolchain::makeSuperBlob(
             magic::kRequirementSet, {{toolchain::requirement::kDesignated, bytesOf(cut)}}));
       },
       "requirements: requirement is truncated at byte 4"},
      {"says ad hoc, has a CMS",
       everyDirectory([](auto& fields) { fields.flags |= toolchain::codeflag::kAdHoc; }),
       "code signed ad hoc has a CMS signature"},
      {"empty CMS", [](Parts& parts) { parts.message = ""; }, "the CMS signature is empty"},
      {"no CMS", [](Parts& parts) { parts.withWrapper = false; },
       "there is no CMS signature, and the code is not signed ad hoc"},
      {"CMS of rubbish", [](Parts& parts) { parts.message = "rubbish"; }, "signature message"},
      {"no list of hashes tells of both",
       [](Parts& parts) { parts.withHashPlist = parts.withHashList = false; },
       "no list of hashes covers the alternate CodeDirectories"},
      {"a list tells of one", [](Parts& parts) { parts.listed = 1; },
       "the list of cdhashes is not that of the 2 CodeDirectories"},
      {"the other list tells of one",
       [](Parts& parts) {
         parts.listed = 1;
         parts.withHashPlist = false;
       },
       "the list of full digests is not that of the 2 CodeDirectories"},
      {"the list is a number", hashListIs("\x02\x01\x07"),
       "the list of cdhashes is not an octet string"},
      {"the list is not a property list", hashListIs("\x04\x01{"), "the list of cdhashes: "},
      {"the list is of other things", hashListIs("\x04\x17<plist><dict/></plist>\n"),
       "the list of cdhashes has no \"cdhashes\""},
      {"no root", [](Parts& parts) { parts.certificates.pop_back(); }, "Test Root CA"},
      {"other team", everyDirectory([](auto& fields) { fields.teamIdentifier = "OTHERTEAM1"; }),
       "team identifier \"OTHERTEAM1\" is not the certificate's \"ABCDE12345\""},
      {"other people's chain", [&](Parts& parts) { parts.certificates = stranger.chain(); },
       "the signer's certificate is not among the 3"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restore();
    auto parts = takeApart(executable_);
    row.change(parts);
    resign(parts);
    expectRefusal(row.cause, row.fault);
  }
}

/// The second slice is whole in itself, but somebody else's.
TEST_F(VerificationTest, SlicesOfDifferentOriginAreRefused) {
  const auto stranger = makeFamily();
  struct Row {
    const char* name;
    std::function<void(Parts& first, Parts& second)> change;
    const Family& family;
    const char* cause;
  };
  for (const Row& row : std::vector<Row>{
           {"ad hoc",
            [](Parts&, Parts&second) {
              for (auto& fields : second.directories) fields.flags |= toolchain::codeflag::kAdHoc;
              second.blobs.erase(2);
              second.message = "";
            },
            signingFamily(), "and none, being signed ad hoc"},
           {"another signer of the same team",
            [&](Parts&, Parts&second) {
              second.blobs.erase(2);
              second.certificates = stranger.chain();
            },
            stranger, "the slices have signers"},
           {"not what the first one asks for",
            [](Parts&first, Parts&second) {
              setRequirement(first, {.operation = Operation::entitlement, .key = "get-task-allow"});
              for (auto& fields : second.directories) fields.execSegmentFlags = 1;
              withoutEntitlements(second);
            },
            signingFamily(), "does not meet the designated requirement of the first one"},
       }) {
    SCOPED_TRACE(row.name);
    restore();
    auto first = takeApart(executable_, 0);
    auto second = takeApart(executable_, 1);
    row.change(first, second);
    resign(first);
    resign(second, 1, row.family);
    expectRefusal(row.cause);
  }
}

/// What older releases of the platform's own tool wrote: one page size, no DER form, no lists of
/// hashes, an early CodeDirectory.
TEST_F(VerificationTest, OlderSignaturesAreAccepted) {
  for (const std::size_t index : {0U, 1U}) {
    auto parts = takeApart(executable_, index);
    parts.directories.resize(1);
    parts.files.resize(1);
    parts.directories[0].pageShift = 12;
    parts.blobs.erase(7);
    parts.withHashPlist = parts.withHashList = false;
    resign(parts, index);
  }
  EXPECT_EQ(verify().status, 0);
}

/// The list of full digests is a set: its order is not that of the CodeDirectories.
TEST_F(VerificationTest, TheStrongerDirectoryMayComeFirst) {
  for (const std::size_t index : {0U, 1U}) {
    auto parts = takeApart(executable_, index);
    std::ranges::reverse(parts.directories);
    std::ranges::reverse(parts.files);
    resign(parts, index);
  }
  EXPECT_EQ(verify().status, 0) << testing::PrintToString(verify().statements);
}

/// What the vendor of the platform signs carries the team of others, and no signed attributes if it
/// is old.
TEST_F(VerificationTest, CodeOfTheVendorIsAccepted) {
  const auto vendor =
      makeFamily({.commonName = "Software Signing", .organizationalUnit = "Apple Software"});
  for (const bool isOld : {false, true}) {
    auto parts = takeApart(library_);
    parts.directories.resize(1);
    parts.files.assign(1, {});
    parts.directories[0].teamIdentifier = "59GAB85EFG";
    parts.directories[0].hashType = isOld ? toolchain::HashType::sha1 : toolchain::HashType::sha256;
    parts.withAttributes = !isOld;
    parts.certificates = vendor.chain();
    setRequirement(parts, toolchain::defaultRequirement("libf", parts.certificates));
    putTogether(library_, parts, vendor);
    EXPECT_EQ(toolchain::verify({.code = library_}).status, 0) << isOld;
  }
}

/// Everything is hashed as it should be, but a loader would map other bytes.
TEST_F(VerificationTest, SegmentsThatOverlapAreRefused) {
  constexpr std::size_t kSizeInFile = 36;
  const auto parts = takeApart(executable_);
  const auto at = slice(0).file.offset + slice(0).segments.front().commandOffset + kSizeInFile;
  writeFile(executable_, poked(contentsOf(executable_), at, 1));
  resign(parts);
  expectRefusal("Cause: segment __TEXT at 0 begins before the end of __PAGEZERO at 1",
                Fault::strictValidation);
}

TEST_F(VerificationTest, AnUnmetRequirementHasAStatusOfItsOwn) {
  auto parts = takeApart(executable_, 1);
  setRequirement(parts, {.operation = Operation::identifier, .data = "com.example.other"});
  resign(parts, 1);
  const auto verdict = verify();
  EXPECT_EQ(verdict.status, 3);
  EXPECT_THAT(verdict.statements,
              ElementsAre(app_.string() + ": does not satisfy its designated Requirement"));
}

/// Both slices deny that there is a seal, or have one that covers nothing.
TEST_F(VerificationTest, ResourcesNeedASeal) {
  const auto resignWith = [](const fs::path& executable, std::size_t slices,
                             const std::optional<std::string>& seal) {
    for (std::size_t i = 0; i < slices; ++i) {
      auto parts = takeApart(executable, i);
      withoutHashOfFile(3)(parts);
      for (std::size_t d = 0; seal && d < parts.directories.size(); ++d) {
        parts.files[d][3] = toolchain::hashOf(bytesOf(*seal), parts.directories[d].hashType);
      }
      putTogether(executable, parts, signingFamily(), i);
    }
  };
  fs::remove_all(app_ / "_CodeSignature");
  resignWith(executable_, 2, std::nullopt);
  expectRefusal("", Fault::sealedResource);
  EXPECT_THAT(verify().files, Contains(EndsWith("/embedded.mobileprovision")));

  const std::string empty = "<plist><dict/></plist>";
  writeFile(app_ / "_CodeSignature/CodeResources", empty);
  resignWith(executable_, 2, empty);
  expectRefusal("Cause: CodeResources has no rules", Fault::invalidResourceDirectory);

  fs::remove_all(framework_ / "_CodeSignature");
  fs::remove(framework_ / "data");
  resignWith(framework_ / "F", 1, std::nullopt);
  EXPECT_EQ(toolchain::verify({.code = framework_}).status, 0) << "nothing needs a seal there";
}

TEST_F(VerificationTest, NestedCodeIsNamed) {
  auto parts = takeApart(framework_ / "F");
  parts.directories[0].execSegmentLimit += 1;
  putTogether(framework_ / "F", parts, signingFamily());
  // Signed code in the app stays as it is.
  ASSERT_TRUE(toolchain::sign({.code = app_, .identity = "-", .force = true}));
  EXPECT_EQ(verify(false).status, 0);
  const auto verdict = verify(true);
  EXPECT_EQ(verdict.status, 1);
  EXPECT_THAT(verdict.statements, Contains("In subcomponent: " + framework_.string()));
}

}  // namespace

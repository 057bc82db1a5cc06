#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "tests/toolchain/verify/Resigning.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"
#include "toolchain/verify/Verification.h"

namespace {

namespace magic = toolchain::magic;
using toolchain::Fault;
using toolchain::requirement::Expression;
using toolchain::requirement::Operation;

using Fields = toolchain::CodeDirectoryFields;
using Parts = SignatureParts;
using Change = std::function<void(Parts&)>;

/// An app of armv7 and arm64 with both digests, entitlements and a loose library.
const fs::path& signedApp() {
  static const TemporaryFolder folder;
  static const fs::path app = [] {
    const fs::path built = makeApp(folder.path());
    fs::create_directory(built / "Frameworks");
    linkImage(folder / "library", "arm64", {"-dylib"});
    fs::rename(folder / "library", built / "Frameworks/libf.dylib");
    const toolchain::SignOptions options{
        .code = built,
        .identity = signingFamily().leaf.sha1(),
        .keychain = writeKeychain(folder / "keychain.pem"),
        .entitlements = writePlist(folder / "entitlements", {{"get-task-allow", true}})};
    EXPECT_EQ(problemOf(toolchain::sign(options)), "");
    return built;
  }();
  return app;
}

class VerificationTest : public testing::Test {
 protected:
  VerificationTest() { restore(); }
  void restore() const {
    fs::remove_all(app_);
    copyTree(signedApp(), app_);
  }
  [[nodiscard]] toolchain::Verdict verify() const { return toolchain::verify({.code = app_}); }
  /// The change to a whole signature is found for this reason and cause.
  void expectRefusal(const std::string& cause, Fault fault = Fault::invalidSignature) const {
    const auto verdict = verify();
    EXPECT_EQ(verdict.status, 1);
    ASSERT_FALSE(verdict.statements.empty());
    EXPECT_EQ(verdict.statements[0], app_.string() + ": " + std::string(toolchain::reason(fault)));
    EXPECT_THAT(verdict.statements.back(), HasSubstr(cause));
  }
  /// Of both slices, or of the first one.
  void resign(const Change& change, std::size_t slices = 2) const {
    for (std::size_t i = 0; i < slices; ++i) {
      auto parts = takeApart(executable_, i);
      change(parts);
      putTogether(executable_, parts, signingFamily(), i);
    }
  }

  const TemporaryFolder folder_;
  const fs::path app_ = folder_ / "Example.app";
  const fs::path executable_ = app_ / "Example";
  const fs::path library_ = app_ / "Frameworks/libf.dylib";
};

std::string blob(std::uint32_t magic, std::string_view payload) {
  return std::string(textOf(toolchain::makeBlob(magic, bytesOf(payload))));
}

Change each(void (*change)(Fields& fields)) {
  return [=](Parts& parts) { std::ranges::for_each(parts.directories, change); };
}

/// Neither directory covers Info.plist (1) or the seal (3).
Change withoutHashOfFile(std::uint32_t slot) {
  return [=](Parts& parts) {
    for (auto& files : parts.files) files.erase(slot);
  };
}

Change blobIs(std::uint32_t slot, std::uint32_t magic, const std::string& payload) {
  return [=](Parts& parts) { parts.blobs[slot] = blob(magic, payload); };
}

Change entitlementsAre(const std::string& text) { return blobIs(5, magic::kEntitlements, text); }

void setRequirement(Parts& parts, const Expression& designated) {
  parts.blobs[2] = textOf(toolchain::makeRequirementSet(designated));
}

/// Not signed for debugging, whatever the entitlements said.
void withoutEntitlements(Parts& parts) {
  parts.blobs.erase(5);
  parts.blobs.erase(7);
}

/// Signatures that are whole in themselves but say something that must not be.
TEST_F(VerificationTest, WrongSignaturesAreRefused) {
  const auto stranger = makeFamily({.organizationalUnit = "OTHERTEAM1"});
  const auto listed = [](std::size_t count, bool withPlist, bool withList) -> Change {
    return [=](Parts& parts) {
      parts.listed = count;
      if (!withPlist) parts.hashPlist = "";
      parts.withHashList = withList;
    };
  };
  struct Row {
    const char* cause;
    Change change;
    Fault fault = Fault::invalidSignature;
  };
  for (const Row& row : {
           // The CodeDirectories.
           Row{"has no identifier", each([](Fields& fields) { fields.identifier.clear(); })},
           Row{"CodeDirectory (sha256) does not agree with the primary one",
               [](Parts& parts) { parts.directories[1].identifier = "other"; }},
           Row{"the slices have identifiers \"com.other\" and \"com.example.app\"",
               each([](Fields& fields) { fields.identifier = "com.other"; })},
           Row{"page size 2^13 is not one that devices accept",
               [](Parts& parts) { parts.directories[0].pageShift = 13; }},
           Row{"where the signature begins",
               each([](Fields& fields) { fields.codeLimit -= 4096; })},
           Row{"is not __TEXT", each([](Fields& fields) { fields.execSegmentLimit -= 1; })},
           Row{"executable segment flags 0x11 are not 0x1", withoutEntitlements},
           Row{"flags 0x40000 are unknown", each([](Fields& fields) { fields.flags |= 0x40000; })},
           // What they cover.
           Row{"does not cover slot 7", [](Parts& parts) { parts.uncovered = {7}; }},
           Row{"covers slot 6, which is not there", [](Parts& parts) { parts.dangling = {6}; }},
           Row{"slot 0x10001 is not one that signatures have",
               [](Parts& parts) {
                 parts.blobs[0x10001] = blob(magic::kWrapper, "x");
                 parts.uncovered = {0x10001};
               }},
           Row{"does not cover Info.plist", withoutHashOfFile(1), Fault::invalidInfoPlist},
           Row{"does not cover the resource seal", withoutHashOfFile(3),
               Fault::invalidResourceDirectory},
           // The other blobs.
           Row{"slot 6 has no content", blobIs(6, magic::kWrapper, "")},
           Row{"slot 2: blob magic", blobIs(2, magic::kEntitlements, "")},
           Row{"entitlements: XML property list: goes on after its end",
               entitlementsAre("<plist><dict/></plist><plist/>")},
           Row{"entitlements: they are not XML", entitlementsAre("bplist00")},
           Row{"entitlements: they are not a dictionary",
               entitlementsAre("<plist><array/></plist>")},
           Row{"entitlements in DER form",
               blobIs(7, magic::kEntitlementsDER, std::string("\x31\x00", 2))},
           Row{"entitlements: the DER form does not describe what the XML form does",
               entitlementsAre("<plist><dict/></plist>")},
           Row{"requirements: requirement: operation 99 is unknown",
               blobIs(2, magic::kRequirementSet,
                      fromHex("00000001 00000003 00000014 fade0c00 00000010 00000001 00000063"))},
           // The CMS.
           Row{"code signed ad hoc has a CMS signature",
               each([](Fields& fields) { fields.flags |= toolchain::codeflag::kAdHoc; })},
           Row{"the CMS signature is empty", [](Parts& parts) { parts.message = ""; }},
           Row{"there is no CMS signature, and the code is not signed ad hoc",
               [](Parts& parts) { parts.withWrapper = false; }},
           Row{"signature message", [](Parts& parts) { parts.message = "rubbish"; }},
           Row{"no list of hashes covers the alternate CodeDirectories", listed(2, false, false)},
           Row{"the list of cdhashes is not that of the 2 CodeDirectories", listed(1, true, true)},
           Row{"the list of full digests is not that of the 2 Code", listed(1, false, true)},
           Row{"the list of cdhashes is not an octet string",
               [](Parts& parts) { parts.hashPlist = "\x02\x01\x07"; }},
           Row{"the list of cdhashes: ", [](Parts& parts) { parts.hashPlist = "\x04\x01{"; }},
           Row{"the list of cdhashes has no \"cdhashes\"",
               [](Parts& parts) { parts.hashPlist = "\x04\x17<plist><dict/></plist>\n"; }},
           Row{"Test Root CA", [](Parts& parts) { parts.certificates.pop_back(); }},
           Row{"team identifier \"OTHERTEAM1\" is not the certificate's \"ABCDE12345\"",
               each([](Fields& fields) { fields.teamIdentifier = "OTHERTEAM1"; })},
           Row{"the signer's certificate is not among the 3",
               [&](Parts& parts) { parts.certificates = stranger.chain(); }},
       }) {
    SCOPED_TRACE(row.cause);
    restore();
    resign(row.change, 1);
    expectRefusal(row.cause, row.fault);
  }
}

/// The second slice is whole in itself, but somebody else's.
TEST_F(VerificationTest, SlicesOfDifferentOriginAreRefused) {
  const auto stranger = makeFamily();
  auto first = takeApart(executable_, 0);
  const auto good = takeApart(executable_, 1);

  auto second = good;
  each([](Fields& fields) { fields.flags |= toolchain::codeflag::kAdHoc; })(second);
  second.blobs.erase(2);
  second.message = "";
  putTogether(executable_, second, signingFamily(), 1);
  expectRefusal("and none, being signed ad hoc");

  second = good;
  second.blobs.erase(2);
  second.certificates = stranger.chain();
  putTogether(executable_, second, stranger, 1);
  expectRefusal("the slices have signers");

  second = good;
  each([](Fields& fields) { fields.execSegmentFlags = 1; })(second);
  withoutEntitlements(second);
  putTogether(executable_, second, signingFamily(), 1);
  setRequirement(first, {.operation = Operation::entitlement, .key = "get-task-allow"});
  putTogether(executable_, first, signingFamily(), 0);
  expectRefusal("does not meet the designated requirement of the first one");
}

TEST_F(VerificationTest, OtherMakersSignaturesAreAccepted) {
  // Older releases of the platform's own tool: one page size, no DER form, no lists of hashes, an
  // early CodeDirectory.
  const auto older = [](Parts& parts) {
    parts.directories.resize(1);
    parts.files.resize(1);
    parts.directories[0].pageShift = 12;
    parts.blobs.erase(7);
    parts.hashPlist = "";
    parts.withHashList = false;
  };
  // The list of full digests is a set: its order is not that of the CodeDirectories.
  const auto strongerFirst = [](Parts& parts) {
    std::ranges::reverse(parts.directories);
    std::ranges::reverse(parts.files);
  };
  for (const Change& change : {Change(strongerFirst), Change(older)}) {
    resign(change);
    EXPECT_EQ(verify().status, 0) << testing::PrintToString(verify().statements);
  }
}

/// What the vendor of the platform signs carries the team of others, and no signed attributes if it
/// is old.
TEST_F(VerificationTest, CodeOfTheVendorIsAccepted) {
  const auto vendor =
      makeFamily({.commonName = "Software Signing", .organizationalUnit = "Apple Software"});
  for (const bool isOld : {false, true}) {
    auto parts = takeApart(library_, 0);
    parts.directories.resize(1);
    parts.files.assign(1, {});
    parts.directories[0].teamIdentifier = "59GAB85EFG";
    parts.directories[0].hashType = isOld ? toolchain::HashType::sha1 : toolchain::HashType::sha256;
    parts.withAttributes = !isOld;
    parts.certificates = vendor.chain();
    setRequirement(parts, toolchain::defaultRequirement("libf", parts.certificates));
    putTogether(library_, parts, vendor, 0);
    EXPECT_EQ(toolchain::verify({.code = library_}).status, 0) << isOld;
  }
}

/// Everything is hashed as it should be, but a loader would map other bytes.
TEST_F(VerificationTest, SegmentsThatOverlapAreRefused) {
  constexpr std::size_t kSizeInFile = 36;
  const std::string file = contentsOf(executable_);
  const auto slice = toolchain::MachOFile::parse(bytesOf(file))->slices().at(0);
  const auto at = slice.file.offset + slice.segments.front().commandOffset + kSizeInFile;
  writeFile(executable_, poked(file, at, 1));
  resign([](Parts&) {}, 1);
  expectRefusal("Cause: segment __TEXT at 0 begins before the end of __PAGEZERO at 1",
                Fault::strictValidation);
}

/// Both slices deny that there is a seal, or have one that covers nothing.
TEST_F(VerificationTest, ResourcesNeedASeal) {
  fs::remove_all(app_ / "_CodeSignature");
  resign(withoutHashOfFile(3));
  expectRefusal("", Fault::sealedResource);
  EXPECT_THAT(verify().files, Contains(EndsWith("/embedded.mobileprovision")));

  const std::string empty = "<plist><dict/></plist>";
  writeFile(app_ / "_CodeSignature/CodeResources", empty);
  resign([&](Parts& parts) {
    for (std::size_t i = 0; i < parts.directories.size(); ++i) {
      parts.files[i][3] = toolchain::hashOf(bytesOf(empty), parts.directories[i].hashType);
    }
  });
  expectRefusal("Cause: CodeResources has no rules", Fault::invalidResourceDirectory);

  for (const char* const resource : {"_CodeSignature", "Frameworks", "embedded.mobileprovision",
                                     "en.lproj", "Icon.png", "Icon@2x.png"}) {
    fs::remove_all(app_ / resource);
  }
  resign(withoutHashOfFile(3));
  EXPECT_EQ(verify().status, 0) << "nothing needs a seal there";
}

/// One bit of some bytes of a loose file's code, and of all of its signature before the CMS.
TEST_F(VerificationTest, EveryByteIsCovered) {
  const std::string good = contentsOf(library_);
  const auto image = toolchain::MachOFile::parse(bytesOf(good));
  const auto& slice = image->slices()[0];
  const auto signature =
      toolchain::SuperBlob::parse(image->signatureArea(slice), magic::kEmbeddedSignature);
  const auto begin = slice.signature->data.offset;
  const auto end =
      begin + signature->bytes().size() - signature->find(toolchain::slot::kSignature)->size() + 8;
  const auto put = [&](std::uint64_t place, int change) {
    std::fstream file(library_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(place)).put(static_cast<char>(good[place] ^ change));
  };
  for (std::uint64_t place = 0; place < end; place += place < begin ? 16 : 1) {
    put(place, 0x10);
    EXPECT_EQ(toolchain::verify({.code = library_}).status, 1) << "byte " << place;
    put(place, 0);
  }
  EXPECT_EQ(toolchain::verify({.code = library_}).status, 0);
}

}  // namespace

// Writes the inputs that fuzzing starts from: one folder for each target, small files that the
// tests' own builders make. Keys are new in every run, and so are the bytes.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/base/Data.h"
#include "foundation/crypto/CMS.h"
#include "foundation/format/PropertyList.h"
#include "tests/support/AppFixture.h"
#include "tests/support/Identities.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ZipFixture.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"

namespace {

namespace fs = std::filesystem;
using foundation::Dictionary;

/// The folder of all corpora.
class Corpus {
 public:
  explicit Corpus(fs::path folder) : folder_(std::move(folder)) {}

  void add(const std::string& target, const std::string& name, std::string_view bytes) const {
    test::writeFile(folder_ / target / ("seed-" + name), bytes);
  }
  void add(const std::string& target, const std::string& name, foundation::Bytes bytes) const {
    add(target, name, foundation::textOf(bytes));
  }

 private:
  fs::path folder_;
};

void addTexts(const Corpus& corpus) {
  corpus.add("Arguments", "quotes", R"(-F "a b" -I'c d' e\ f --sign "" -Ffoo -F)");
  corpus.add("Arguments", "open", "a 'b\\' c");
  corpus.add("SearchPaths", "well-formed", R"("/X Y" /A/** /X\ Y 'b c/**')");
  corpus.add("SearchPaths", "mangled", R"(/X Y Z "/A B" gone /C\\ D/** E)");
  corpus.add("JSON", "answer",
             R"({"error":{"message":"no \u00e9\ud83d\ude00"},"n":[1,-2.5e3,true,null,"x"]})");
  corpus.add("JSON", "utf-16", std::string_view("\xff\xfe[\0\x31\0]\0", 8));
  corpus.add("PropertyList", "old", "// !$*UTF8*$!\n{ a = (b, \"c\\U0041\\351\", <0fbd 77>); }");
  corpus.add("PropertyList", "strings", "/* c */ \"a\" = \"b\";\nc;\n");
}

/// XML of every kind of value, and the same in binary form.
void addPropertyLists(const Corpus& corpus) {
  const Dictionary values{{"text", "a & \xc3\xa9"},
                          {"number", 42},
                          {"real", 1.5},
                          {"yes", true},
                          {"date", foundation::Date()},
                          {"data", foundation::Data(std::string("\0\1\2", 3))},
                          {"list", foundation::Array{1, "two", Dictionary{{"three", false}}}}};
  const test::TemporaryFolder folder;
  const fs::path xml = folder / "values";
  test::writePlist(xml, values);
  corpus.add("PropertyList", "xml", test::contentsOf(xml));
  test::outputOf({"python3", "-c",
                  "import plistlib,sys; p=sys.argv[1]; v=plistlib.load(open(p,'rb')); "
                  "plistlib.dump(v,open(p,'wb'),fmt=plistlib.FMT_BINARY)",
                  xml.string()});
  corpus.add("PropertyList", "binary", test::contentsOf(xml));
}

void addProject(const Corpus& corpus) {
  corpus.add("Project", "small", R"(// !$*UTF8*$!
{ objects = {
P = { isa = PBXProject; buildConfigurationList = PL; mainGroup = G; targets = (T, GONE); };
G = { isa = PBXGroup; children = (F, S, V, G); sourceTree = "<group>"; };
S = { isa = PBXGroup; children = (E, S); path = Sub; sourceTree = "<group>"; };
V = { isa = PBXVariantGroup; children = (F); name = Localizable.strings; };
F = { isa = PBXFileReference; path = main.m; sourceTree = SOURCE_ROOT; };
E = { isa = PBXFileReference; path = "x/Settings.bundle"; sourceTree = "<group>"; };
T = { isa = PBXNativeTarget; name = App; productName = App; buildPhases = (R, H, R); buildConfigurationList = PL; };
R = { isa = PBXResourcesBuildPhase; buildActionMask = 2147483647; files = (B, B); };
H = { isa = PBXShellScriptBuildPhase; InputPaths = (a); shellPath = /bin/sh; shellScript = "exit 0\n"; };
B = { isa = PBXBuildFile; fileRef = E; };
PL = { isa = XCConfigurationList; buildConfigurations = (C); };
C = { isa = XCBuildConfiguration; buildSettings = { SDKROOT = iphoneos; }; };
}; rootObject = P; }
)");
}

test::MachOImage smallImage(test::MachOImage image) {
  image.uuid("00112233445566778899aabbccddeeff")
      .versionMin(macho::LC_VERSION_MIN_IPHONEOS, 0x90000, 0xc0100)
      .dylib("/usr/lib/libSystem.B.dylib")
      .encryption(1)
      .segment("__TEXT", 0x100000000, 0x4000,
               {{.name = "__text", .bytes = "code"}, {.name = "__info_plist", .bytes = "{}"}});
  return image;
}

void addMachOFiles(const Corpus& corpus) {
  const auto arm64 = smallImage(test::MachOImage::arm64());
  const auto armv7 = smallImage(test::MachOImage::armv7());
  corpus.add("MachO", "arm64", arm64.bytes());
  corpus.add("MachO", "armv7", armv7.bytes());
  corpus.add("MachO", "universal",
             test::universalFile({test::FatSlice::of(armv7), test::FatSlice::of(arm64)}));
}

void addIdentities(const Corpus& corpus) {
  const test::Family family = test::makeFamily();
  corpus.add("Keychain", "certificate", family.leaf.der().bytes());
  corpus.add("Keychain", "pem", family.pem());
  corpus.add("Keychain", "encrypted-pem", family.leaf.keyPEM("secret"));
  corpus.add("Keychain", "modern-p12", test::makePKCS12(family.leaf).bytes());
  corpus.add(
      "Keychain", "old-p12",
      test::makePKCS12(family.leaf, {family.root},
                       {.encryption = test::PKCS12Options::Encryption::old, .passphrase = ""})
          .bytes());
  test::ProfileOptions profile{.developerCertificates = {family.leaf.der()},
                               .provisionedDevices = {{"device"}}};
  corpus.add("Profile", "signed",
             test::makeProvisioningProfile(profile.dictionary(), family.leaf).bytes());
  corpus.add("SignedMessage", "attached", test::makeSignedMessage("content", family.leaf).bytes());
  const auto detached = foundation::CMS::signDetached(
      foundation::bytesOf("content"), family.leaf.identity(),
      {family.leaf.certificate(), family.intermediate.certificate(), family.root.certificate()},
      foundation::Date(), {});
  corpus.add("SignedMessage", "detached", detached->bytes());
}

void addEntitlements(const Corpus& corpus) {
  const Dictionary dictionary{{"application-identifier", "ABCDE12345.com.example.app"},
                              {"get-task-allow", true},
                              {"level", 7},
                              {"groups", foundation::Array{"a", "b"}},
                              {"nested", Dictionary{{"key", "value"}}}};
  corpus.add("Entitlements", "xml", *foundation::PropertyList::xml(dictionary));
  corpus.add("Entitlements", "der", toolchain::encodeEntitlements(dictionary));
}

/// What can be signed and is small: no code, no symbols.
std::string smallSignable() {
  constexpr std::uint32_t kCode = 0x400;
  return test::MachOImage::arm64()
      .fileSegment("__TEXT", 0, kCode)
      .fileSegment("__LINKEDIT", kCode, 16)
      .paddedTo(kCode + 16)
      .bytes();
}

/// Signs a file in place with keys of the tests.
void sign(const fs::path& code) {
  const test::TemporaryFolder folder;
  const auto done = toolchain::sign({.code = code,
                                     .identity = test::signingFamily().leaf.sha1(),
                                     .keychain = test::writeKeychain(folder / "keychain"),
                                     .force = true});
  if (!done) throw std::runtime_error(done.error().localizedDescription());
}

/// The blobs of a real app's signature, without the code that they cover.
void addSignatures(const Corpus& corpus) {
  const test::TemporaryFolder folder;
  const fs::path app = test::writeBundle(folder / "A.app", "com.example.app");
  test::writeFile(app / "en.lproj/Localizable.strings", "\"a\" = \"b\";");
  fs::create_symlink("Info.plist", app / "link");
  sign(app);
  corpus.add("CodeResources", "signed", test::contentsOf(app / "_CodeSignature/CodeResources"));
  const std::string file = test::contentsOf(app / "A");
  const auto image = toolchain::MachOFile::parse(foundation::bytesOf(file));
  const auto area = image->signatureArea(image->slices().front());
  const auto signature = toolchain::SuperBlob::parse(area, toolchain::magic::kEmbeddedSignature);
  corpus.add("SignatureBlobs", "signed", signature->bytes());
  corpus.add("SignatureBlobs", "directory", *signature->find(toolchain::slot::kCodeDirectory));
  corpus.add("SignatureBlobs", "requirements", *signature->find(toolchain::slot::kRequirements));
  const fs::path loose = folder / "loose";
  test::writeFile(loose, smallSignable());
  corpus.add("SignedCode", "unsigned", test::contentsOf(loose));
  sign(loose);
  corpus.add("SignedCode", "signed", test::contentsOf(loose));
}

void addArchives(const Corpus& corpus) {
  // The checksum of "Payload/raw.app/x".
  const std::string unicodePath =
      "\1" + test::littleEndian(0x7dbc6c9, 4) + "Payload/\xc3\x9c\xf0\x9f\x98\x80.app/x";
  test::ZipImage image(
      {{.name = "Payload/", .compressedSize = 0, .uncompressedSize = 0, .unixMode = 0040755},
       {.name = "Payload/raw.app/x", .extra = test::zipField(0x7075, unicodePath)},
       {.name = "./../Payload/\xc3\x9c.app/link", .flags = 1 << 11, .unixMode = 0120777},
       {.name = "Payload/B.app;1",
        .uncompressedSize = 0xffffffff,
        .extra = test::zipField(1, test::littleEndian(5'000'000'000, 8))}});
  image.comment = "comment";
  corpus.add("ZipDirectory", "plain", image.bytes());
  corpus.add("ZipDirectory", "zip64", image.zip64());
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
    return 1;
  }
  try {
    const Corpus corpus(arguments[1]);
    addTexts(corpus);
    addPropertyLists(corpus);
    addProject(corpus);
    addMachOFiles(corpus);
    addIdentities(corpus);
    addEntitlements(corpus);
    addSignatures(corpus);
    addArchives(corpus);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "fuzz_seeds: %s\n", problem.what());
    return 1;
  }
  return 0;
}

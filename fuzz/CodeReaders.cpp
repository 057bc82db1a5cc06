// Readers of Mach-O files and of what signatures consist of.
#include "foundation/base/Error.h"
#include "foundation/crypto/CMS.h"
#include "foundation/format/PropertyList.h"
#include "fuzz/Reader.h"
#include "macho/MachOFile.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/seal/private/PathPattern.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Entitlements.h"
#include "toolchain/signature/Requirement.h"
#include "toolchain/verify/SignatureCheck.h"

namespace fuzz {
namespace {

using namespace foundation;
using namespace macho;
using namespace toolchain;

/// Reads every byte of a section in the file. A zero-filled section has none, and its offset may be
/// anything.
void readSection(const QVTMachOFile& file, const void* bytes, std::uint64_t size) {
  const auto* const start = static_cast<const std::uint8_t*>(bytes);
  const auto* const end = static_cast<const std::uint8_t*>(file.mappedFile) + file.mappedSize;
  if (start > end || size > static_cast<std::uint64_t>(end - start)) return;
  volatile std::uint32_t sum = 0;
  for (std::uint64_t i = 0; i < size; ++i) sum = sum + start[i];
}

void readSections(const QVTMachOFile& file, const macho::QVTMachOSlice& slice) {
  constexpr const char* kNames[][2] = {
      {"__TEXT", "__text"}, {"__TEXT", "__info_plist"}, {"__DATA", "__data"}, {"", ""}};
  for (const auto& [segment, name] : kNames) {
    const void* bytes = nullptr;
    QVTMachOSection section;
    const bool isThere = QVTMachOSliceInitSectionByName(&slice, segment, name, &section);
    if (!QVTMachOSliceGetSectionByName(&slice, segment, name, &bytes)) continue;
    require(isThere);
    readSection(file, bytes, section.size);
  }
}

void readCommands(const macho::QVTMachOSlice& slice) {
  QVTMachOSliceEnumerateLoadCommands(&slice, [](std::uint32_t, std::uint32_t, const void* command) {
    QVTMachOGetUUID(command);
    QVTMachOGetDylibPath(command);
    QVTMachOGetEncrypted(command);
    QVTMachOGetMinimumOSVersion(command);
    QVTMachOGetLinkedSDKVersion(command);
    QVTMachOGetSegmentCommand(command);
  });
}

void readSlices(const char* path) {
  constexpr int kMaximum = 2;  // each may have as many commands as fit into the file
  QVTMachOFile file;
  if (QVTMachOFileInitWithPath(&file, path)) {
    int count = 0;
    QVTMachOFileEnumerateSlices(&file, [&](const macho::QVTMachOSlice* slice) {
      if (++count > kMaximum) return;
      readSections(file, *slice);
      readCommands(*slice);
    });
    QVTMachOFileSliceWithArchitectureName(&file, "arm64");
  }
  QVTMachOFileDestroy(&file);
}

void readBinary(const std::string& path) {
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  if (!binary) return;
  binary->enumerateUUIDs([](const std::optional<std::string>& uuid, const std::string&) {
    require(!uuid || uuid->size() == 32);
  });
  try {
    require(binary->instanceIdentifier().size() == 40);
  } catch (const Exception&) {
    // A slice without UUID.
  }
}

void readRequirements(Bytes blob) {
  const auto set = parseRequirementSet(blob);
  if (!set) return;
  for (const auto& entry : *set) {
    const auto expression = parseRequirement(entry.blob);
    if (!expression) continue;
    ignore(text(*expression));
    const auto written = makeRequirement(*expression);
    require(parseRequirement(written).ok());
  }
}

void readDirectory(const CodeDirectory& directory) {
  const std::size_t size = hashSize(directory.fields.hashType);
  require(directory.codeHashes().size() == size * directory.codeSlotCount);
  for (std::uint32_t slot = 1; slot <= directory.specialSlotCount; ++slot) {
    require(directory.specialHash(slot).size() == size);
  }
  require(directory.cdHash().size() == 20);
  ignore(checkUnused(directory));
}

void readSignature(const EmbeddedSignature& signature) {
  for (const auto& directory : signature.directories) readDirectory(directory);
  RequirementSubject subject{
      .identifier = "com.example.app", .cdHashes = {}, .chain = {}, .info = {}, .entitlements = {}};
  if (const auto entitlements = signature.checkedEntitlements()) {
    subject.entitlements = *entitlements;
  }
  const auto signer = signature.checkedSigner();
  if (signer && *signer) subject.chain = (*signer)->chain;
  const auto requirement = signature.designatedRequirement();
  if (requirement && *requirement) ignore(meets(subject, **requirement));
}

void useRules(const std::vector<ResourceRule>& rules) {
  const auto matcher = RuleMatcher::compile(rules);
  if (!matcher) return;
  ignore(matcher->match("en.lproj/Localizable.strings"),
         matcher->match("Frameworks/A.framework/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"));
}

/// Mach-O files as the tool reads them: slices, load commands, sections, identifiers.
const Registration kMachO("MachO", [](Bytes input) {
  const MemoryFile file(input);
  readSlices(file.path().c_str());
  readBinary(file.path());
});

/// Signed Mach-O files as the signing tools read and verify them.
const Registration kSignedCode("SignedCode", [](Bytes file) {
  looksLikeMachO(file);
  const auto image = MachOFile::parse(file);
  if (!image) return;
  for (const Slice& slice : image->slices()) {
    const Bytes code = image->bytesOf(slice);
    if (const auto list = image->embeddedInfoPlist(slice)) {
      ignore(PropertyList::parse(*list));
    }
    ignore(checkSegments(slice));
    if (!slice.signature) continue;
    ignore(checkSignature({.slice = slice,
                           .signature = image->signatureArea(slice),
                           .code = {code.first(slice.signature->data.offset)},
                           .takenHashes = {},
                           .infoPlist = {},
                           .resources = {}}));
  }
});

/// The blobs of a code signature: the superblob with all that is in it.
const Registration kSignatureBlobs("SignatureBlobs", [](Bytes bytes) {
  for (const auto gaps : {Gaps::refused, Gaps::accepted}) {
    if (const auto blobs = SuperBlob::parse(bytes, magic::kEmbeddedSignature, gaps)) {
      for (const auto& entry : blobs->entries()) readRequirements(entry.bytes);
    }
    if (const auto signature = EmbeddedSignature::parse(bytes, gaps)) {
      readSignature(*signature);
    }
  }
  ignore(CodeDirectory::parse(bytes));
  readRequirements(bytes);
});

/// Entitlements: files given to the signer, and the DER form inside signatures.
const Registration kEntitlements("Entitlements", [](Bytes input) {
  if (const auto parsed = parseEntitlements(input)) {
    const auto encoded = encodeEntitlements(parsed->dictionary);
    require(decodeEntitlements(encoded).ok());
  }
  if (const auto decoded = decodeEntitlements(input)) {
    executableSegmentFlags(*decoded);
  }
});

/// _CodeSignature/CodeResources: both lists, and the rules, which are asked about a few paths.
const Registration kCodeResources("CodeResources", [](Bytes input) {
  const auto seal = parseResourceSeal(input);
  if (!seal) return;
  useRules(seal->rules.rules);
  useRules(seal->rules.rules2);
  const auto written = text(*seal);
  if (written) require(parseResourceSeal(bytesOf(*written)).ok());
});

/// Resource rules: a pattern, and after the first line feed the path to search it in.
const Registration kPathPattern("PathPattern", [](Bytes input) {
  const std::string_view all = textOf(input);
  const auto end = std::min(all.find('\n'), all.size());
  const std::string_view text = all.substr(0, end);
  const std::string_view path = all.substr(end);
  const auto pattern = PathPattern::compile(text);
  if (!pattern) return;
  const bool matches = pattern->matches(path);
  // The same in a group; and found wherever it begins and ends, with the anchors left out.
  const auto group = PathPattern::compile("(" + std::string(text) + ")");
  if (group && text.find_first_of(")[\\") == text.npos) require(group->matches(path) == matches);
  const std::string longer = "x" + std::string(path) + "x";
  if (matches && text.find_first_of("^$") == text.npos) require(pattern->matches(longer));
});

/// CMS messages in DER and BER, as signatures carry them.
const Registration kSignedMessage("SignedMessage", [](Bytes input) {
  const auto signer = CMS::verifyDetached(input, bytesOf("what is signed"));
  if (signer) require(!signer->chain.empty());
});

}  // namespace
}  // namespace fuzz

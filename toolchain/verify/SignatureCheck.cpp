#include "toolchain/verify/SignatureCheck.h"

#include <algorithm>

#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/signature/Entitlements.h"

namespace toolchain {

namespace {

/// The flags that entitlements can ask for, and that of a main executable.
constexpr std::uint64_t kKnownExecSegmentFlags =
    execseg::kMainBinary | execseg::kAllowUnsigned | execseg::kDebugger | execseg::kJIT |
    execseg::kSkipLibraryValidation | execseg::kCanLoadCDHash | execseg::kCanExecuteCDHash;
constexpr std::uint32_t kHasExecSegment = 0x20400;

/// The magic of the blob in this slot; 0 where another check covers it.
std::uint32_t expectedMagic(std::uint32_t number) {
  if (number == slot::kRequirements) return magic::kRequirementSet;
  if (number == slot::kEntitlements) return magic::kEntitlements;
  if (number == slot::kEntitlementsDER) return magic::kEntitlementsDER;
  if (number >= slot::kLaunchConstraintSelf && number <= slot::kLibraryConstraint) {
    return magic::kLaunchConstraint;
  }
  return 0;
}

foundation::Error invalid(const std::string& detail) {
  return faultError(Fault::invalidSignature, detail);
}

const auto asInvalid = asFault(Fault::invalidSignature);

bool isEqual(Bytes a, Bytes b) { return foundation::textOf(a) == foundation::textOf(b); }

std::string named(const CodeDirectory& directory) {
  return "CodeDirectory (" + std::string(hashName(directory.fields.hashType)) + ")";
}

/// All directories of one slice agree in everything but their hashes.
Result<> checkAgreement(const std::vector<CodeDirectory>& directories) {
  const auto& first = directories.front().fields;
  for (const auto& directory : directories) {
    const auto& fields = directory.fields;
    const bool agrees = fields.identifier == first.identifier &&
                        fields.teamIdentifier == first.teamIdentifier &&
                        fields.flags == first.flags && fields.codeLimit == first.codeLimit &&
                        fields.execSegmentBase == first.execSegmentBase &&
                        fields.execSegmentLimit == first.execSegmentLimit &&
                        fields.execSegmentFlags == first.execSegmentFlags;
    if (!agrees) return invalid(named(directory) + " does not agree with the primary one");
  }
  return {};
}

Result<> checkLayout(const CodeDirectory& directory, const Slice& slice) {
  const auto& fields = directory.fields;
  auto unused = checkUnused(directory).mapError(within("CodeDirectory")).mapError(asInvalid);
  if (!unused) return unused;
  if (fields.identifier.empty()) return invalid(named(directory) + " has no identifier");
  if (fields.pageShift != 12 && fields.pageShift != 14) {
    return invalid(named(directory) + ": page size 2^" + std::to_string(fields.pageShift) +
                   " is not one that devices accept");
  }
  if (fields.codeLimit != slice.signature->data.offset) {
    return invalid(named(directory) + ": code limit " + std::to_string(fields.codeLimit) +
                   " is not " + std::to_string(slice.signature->data.offset) +
                   ", where the signature begins");
  }
  return {};
}

Result<> checkExecSegment(const CodeDirectory& directory, const Slice& slice,
                          const foundation::Dictionary& entitlements) {
  const auto& fields = directory.fields;
  if (fields.version < kHasExecSegment) return {};
  const Extent text = slice.text ? slice.text->file : Extent{};
  if (fields.execSegmentBase != text.offset || fields.execSegmentLimit != text.size) {
    return invalid(named(directory) + ": executable segment at " +
                   std::to_string(fields.execSegmentBase) + " of " +
                   std::to_string(fields.execSegmentLimit) + " bytes is not __TEXT, at " +
                   std::to_string(text.offset) + " of " + std::to_string(text.size));
  }
  const std::uint64_t expected =
      slice.isMainExecutable() ? execseg::kMainBinary | executableSegmentFlags(entitlements) : 0;
  if ((fields.execSegmentFlags & kKnownExecSegmentFlags) != expected) {
    return invalid(named(directory) + ": executable segment flags " + hex(fields.execSegmentFlags) +
                   " are not " + hex(expected));
  }
  return {};
}

/// The hashes of the slice's code as this directory stores them. Adds what is missing to `known`,
/// for all `directories` of one page size together, so that code is read once.
Bytes pageHashes(const CodeDirectory& directory, const std::vector<CodeDirectory>& directories,
                 const Pieces& code, std::vector<PageHashes>& known) {
  const auto pageShift = directory.fields.pageShift;
  for (const PageHashes& each : known) {
    if (each.type == directory.fields.hashType && each.pageShift == pageShift) return each.hashes;
  }
  std::vector<HashType> types;
  for (const auto& other : directories) {
    if (other.fields.pageShift == pageShift) types.push_back(other.fields.hashType);
  }
  std::ranges::move(hashPages(code, pageShift, types), std::back_inserter(known));
  return pageHashes(directory, directories, code, known);
}

Result<> checkPages(const std::vector<CodeDirectory>& directories, const SliceEvidence& evidence) {
  std::vector<PageHashes> known(evidence.takenHashes.begin(), evidence.takenHashes.end());
  for (const auto& directory : directories) {
    const Bytes hashes = pageHashes(directory, directories, evidence.code, known);
    const std::size_t size = hashSize(directory.fields.hashType);
    if (hashes.size() / size != directory.codeSlotCount) {
      return invalid(named(directory) + ": " + std::to_string(directory.codeSlotCount) +
                     " page hashes, but the code has " + std::to_string(hashes.size() / size) +
                     " pages");
    }
    for (std::uint32_t page = 0; page < directory.codeSlotCount; ++page) {
      if (isEqual(directory.codeHash(page), hashes.subspan(page * size, size))) continue;
      return invalid(named(directory) + ": page " + std::to_string(page) + " of " +
                     std::to_string(directory.codeSlotCount) + " has been modified");
    }
  }
  return {};
}

/// A slot has a hash exactly when there is something for it to cover.
Result<> checkSpecialSlot(const CodeDirectory& directory, std::uint32_t number,
                          const std::optional<Bytes>& content, Fault fault,
                          const std::string& what) {
  const Bytes stored = directory.specialHash(number);
  const bool isUsed = !foundation::isZero(stored);
  if (!isUsed && !content) return {};
  if (!content)
    return faultError(fault, named(directory) + " covers " + what + ", which is not there");
  if (!isUsed) return faultError(fault, named(directory) + " does not cover " + what);
  if (!isEqual(stored, hashOf(*content, directory.fields.hashType))) {
    return faultError(fault, what + " has another hash than in " + named(directory));
  }
  return {};
}

Result<> checkSpecialSlots(const CodeDirectory& directory, const SuperBlob& signature,
                           const SliceEvidence& evidence) {
  const Fault resources =
      evidence.resources ? Fault::invalidResourceDirectory : Fault::missingResources;
  const std::uint32_t last = std::max(directory.specialSlotCount, slot::kLibraryConstraint);
  for (std::uint32_t number = 1; number <= last; ++number) {
    const auto check = [&](const auto& content, Fault fault, const std::string& what) {
      return checkSpecialSlot(directory, number, content, fault, what);
    };
    auto checked = number == slot::kInfoPlist
                       ? check(evidence.infoPlist, Fault::invalidInfoPlist, "Info.plist")
                   : number == slot::kResources
                       ? check(evidence.resources, resources, "the resource seal")
                       : check(signature.find(number), Fault::invalidSignature,
                               "slot " + std::to_string(number));
    if (!checked) return checked;
  }
  return {};
}

/// Slots without a hash in the CodeDirectories: those of the directories and of the CMS.
bool standsAlone(std::uint32_t number) {
  return number == slot::kCodeDirectory ||
         (number >= slot::kAlternateCodeDirectories &&
          number < slot::kAlternateCodeDirectoriesEnd) ||
         number == slot::kSignature;
}

Result<> checkSlots(const SuperBlob& signature) {
  for (const auto& entry : signature.entries()) {
    if (entry.slot > slot::kLibraryConstraint && !standsAlone(entry.slot)) {
      return invalid("slot " + hex(entry.slot) + " is not one that signatures have");
    }
    if (const std::uint32_t expected = expectedMagic(entry.slot)) {
      if (const auto payload = blobPayload(entry.bytes, expected); !payload) {
        return asInvalid(within("slot " + std::to_string(entry.slot), payload.error()));
      }
    }
    constexpr std::size_t kHeader = 8;
    if (!standsAlone(entry.slot) && entry.bytes.size() <= kHeader) {
      return invalid("slot " + std::to_string(entry.slot) + " has no content");
    }
  }
  return {};
}

Result<> checkDirectories(const EmbeddedSignature& signature, const SliceEvidence& evidence) {
  if (auto checked = checkAgreement(signature.directories); !checked) return checked;
  for (const auto& directory : signature.directories) {
    if (auto checked = checkLayout(directory, evidence.slice); !checked) return checked;
  }
  if (auto checked = checkPages(signature.directories, evidence); !checked) return checked;
  for (const auto& directory : signature.directories) {
    if (auto checked = checkSpecialSlots(directory, signature.blobs, evidence); !checked) {
      return checked;
    }
  }
  return {};
}

/// The code as requirements see it.
RequirementSubject subjectOf(const CheckedSignature& checked, const SliceEvidence& evidence,
                             foundation::Dictionary entitlements) {
  RequirementSubject subject;
  subject.identifier = checked.signature.primary().fields.identifier;
  for (const auto& directory : checked.signature.directories) {
    subject.cdHashes.push_back(directory.cdHash());
  }
  if (checked.signer) subject.chain = checked.signer->chain;
  subject.entitlements = std::move(entitlements);
  subject.isAppleRoot = evidence.isAppleRoot;
  if (evidence.infoPlist) {
    const auto info = foundation::PropertyList::parse(*evidence.infoPlist);
    if (info && info->dictionary()) subject.info = *info->dictionary();
  }
  return subject;
}

}  // namespace

bool CheckedSignature::meetsRequirementOf(const CheckedSignature& other) const {
  return !other.designatedRequirement || meets(subject, *other.designatedRequirement);
}

Result<CheckedSignature> checkSignature(const SliceEvidence& evidence) {
  if (!evidence.slice.signature) return faultError(Fault::unsignedCode);
  auto signature = EmbeddedSignature::parse(evidence.signature).mapError(asInvalid);
  if (!signature) return signature.error();
  auto entitlements =
      checkSlots(signature->blobs)
          .andThen([&] { return checkDirectories(*signature, evidence); })
          .andThen([&] { return signature->checkedEntitlements().mapError(asInvalid); });
  if (!entitlements) return entitlements.error();
  for (const auto& directory : signature->directories) {
    auto checked = checkExecSegment(directory, evidence.slice, *entitlements);
    if (!checked) return checked.error();
  }
  auto signer = signature->checkedSigner().mapError(asInvalid);
  if (!signer) return signer.error();
  auto requirement = signature->designatedRequirement().mapError(asInvalid);
  if (!requirement) return requirement.error();
  CheckedSignature result{*std::move(signature), *std::move(signer), *std::move(requirement), {}};
  result.subject = subjectOf(result, evidence, *std::move(entitlements));
  return result;
}

}  // namespace toolchain

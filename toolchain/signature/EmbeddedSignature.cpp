#include "toolchain/signature/EmbeddedSignature.h"

#include <algorithm>
#include <array>

#include "foundation/crypto/DER.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Entitlements.h"

namespace toolchain {

namespace {

namespace DER = foundation::DER;
using foundation::CMS::Attribute;
using foundation::CMS::Signer;

/// Extensions of the leaf: iOS development and distribution, Mac submission and development,
/// Developer ID.
constexpr std::array<std::string_view, 5> kDeveloperMarks = {
    "1.2.840.113635.100.6.1.2", "1.2.840.113635.100.6.1.4", "1.2.840.113635.100.6.1.7",
    "1.2.840.113635.100.6.1.12", "1.2.840.113635.100.6.1.13"};

const Attribute* attribute(const Signer& signer, std::string_view oid) {
  const auto at = std::ranges::find(signer.signedAttributes, oid, &Attribute::oid);
  return at == signer.signedAttributes.end() ? nullptr : &*at;
}

Result<> checkCDHashList(const Attribute& list, const std::vector<CodeDirectory>& directories) {
  const auto octets = list.values.size() == 1
                          ? DER::single(list.values[0].bytes(), DER::kOctetString)
                          : std::nullopt;
  if (!octets) return failure("the list of cdhashes is not an octet string");
  return foundation::PropertyList::parse(octets->content)
      .mapError(within("the list of cdhashes"))
      .andThen([&](const foundation::Value& plist) -> Result<> {
        const auto* hashes = plist.find("cdhashes");
        if (!hashes || !hashes->array()) return failure("the list of cdhashes has no \"cdhashes\"");
        if (*hashes == foundation::Value(cdHashList(directories))) return {};
        return failure("the list of cdhashes is not that of the " +
                       std::to_string(directories.size()) + " CodeDirectories");
      });
}

/// The values of a set come in any order.
Result<> checkDigestList(const Attribute& list, const std::vector<CodeDirectory>& directories) {
  auto expected = digestList(directories);
  std::vector<std::string> found;
  for (const auto& value : list.values) found.emplace_back(value.text());
  std::ranges::sort(expected);
  std::ranges::sort(found);
  if (found == expected) return {};
  return failure("the list of full digests is not that of the " +
                 std::to_string(directories.size()) + " CodeDirectories");
}

Result<> checkHashLists(const Signer& signer, const std::vector<CodeDirectory>& directories) {
  const Attribute* plist = attribute(signer, kCDHashListOID);
  const Attribute* list = attribute(signer, kDigestListOID);
  // The message itself covers the primary directory only.
  if (!plist && !list && directories.size() > 1) {
    return failure("no list of hashes covers the alternate CodeDirectories");
  }
  return (plist ? checkCDHashList(*plist, directories) : Result<>()).andThen([&] {
    return list ? checkDigestList(*list, directories) : Result<>();
  });
}

/// A certificate of one of the developer programs. Other certificates, the vendor's own and its
/// stores', sign code of any team.
bool isDevelopersOwn(const Signer& signer) {
  const auto hasAny = [](const foundation::Certificate& certificate, const auto& marks) {
    return std::any_of(marks.begin(), marks.end(), [&](std::string_view oid) {
      return certificate.extensionValue(oid).has_value();
    });
  };
  return signer.chain.size() > 1 && hasAny(signer.certificate, kDeveloperMarks) &&
         hasAny(signer.chain[1], std::array{kDeveloperIssuerMark, kDeveloperIDIssuerMark});
}

Result<> checkTeam(const Signer& signer, const std::vector<CodeDirectory>& directories) {
  if (!isDevelopersOwn(signer)) return {};
  const std::string& team = directories.front().fields.teamIdentifier;
  const auto unit = signer.certificate.subjectValue(foundation::kOIDOrganizationalUnitName);
  if (!team.empty() && team != unit.value_or("")) {
    return failure("team identifier \"" + team + "\" is not the certificate's \"" +
                   unit.value_or("") + "\"");
  }
  return {};
}

Result<foundation::Dictionary> xmlEntitlements(Bytes blob) {
  const auto payload = blobPayload(blob, magic::kEntitlements);
  if (!payload) return payload.error();
  if (foundation::textOf(*payload).starts_with("bplist")) return failure("they are not XML");
  auto value = foundation::PropertyList::parseUnambiguous(*payload);
  if (!value) return value.error();
  if (!value->dictionary()) return failure("they are not a dictionary");
  return *value->dictionary();
}

Result<foundation::Dictionary> derEntitlements(Bytes blob) {
  return blobPayload(blob, magic::kEntitlementsDER).andThen(decodeEntitlements);
}

Result<std::vector<CodeDirectory>> codeDirectories(const SuperBlob& signature) {
  std::vector<CodeDirectory> directories;
  for (const BlobEntry& entry : signature.entries()) {
    const bool isAlternate = entry.slot >= slot::kAlternateCodeDirectories &&
                             entry.slot < slot::kAlternateCodeDirectoriesEnd;
    if (entry.slot != slot::kCodeDirectory && !isAlternate) continue;
    auto directory = CodeDirectory::parse(entry.bytes).mapError(within("slot " + hex(entry.slot)));
    if (!directory) return directory.error();
    for (const CodeDirectory& other : directories) {
      if (other.fields.hashType == directory->fields.hashType) {
        return failure("slot " + hex(entry.slot) + ": a second CodeDirectory of type " +
                       std::string(hashName(other.fields.hashType)));
      }
    }
    directories.push_back(std::move(*directory));
  }
  if (!signature.find(slot::kCodeDirectory)) return failure("the signature has no CodeDirectory");
  return directories;
}

}  // namespace

const Slice& chosenSlice(const MachOFile& image, SlicePolicy policy) {
  const auto& slices = image.slices();
  const auto arm64 = std::ranges::find(slices, "arm64", &Slice::architecture);
  return policy == SlicePolicy::deviceFirst && arm64 != slices.end() ? *arm64 : slices.front();
}

Result<EmbeddedSignature> EmbeddedSignature::parse(Bytes area, Gaps gaps) {
  return SuperBlob::parse(area, magic::kEmbeddedSignature, gaps).andThen([](SuperBlob blobs) {
    return codeDirectories(blobs).map([&](std::vector<CodeDirectory> directories) {
      return EmbeddedSignature{std::move(blobs), std::move(directories)};
    });
  });
}

foundation::Array cdHashList(const std::vector<CodeDirectory>& directories) {
  foundation::Array hashes;
  for (const auto& directory : directories) {
    hashes.emplace_back(foundation::Data(directory.cdHash()));
  }
  return hashes;
}

std::vector<std::string> digestList(const std::vector<CodeDirectory>& directories) {
  std::vector<std::string> digests;
  digests.reserve(directories.size());
  for (const auto& directory : directories) {
    digests.push_back(DER::element(
        DER::kSequence,
        DER::objectIdentifier(digestOID(directory.fields.hashType)) +
            DER::element(DER::kOctetString, foundation::textOf(directory.fullHash()))));
  }
  return digests;
}

const CodeDirectory& EmbeddedSignature::strongest() const {
  return *std::ranges::max_element(directories, {}, [](const CodeDirectory& directory) {
    return strength(directory.fields.hashType);
  });
}

bool EmbeddedSignature::isLinkerSigned() const {
  return (primary().fields.flags & codeflag::kLinkerSigned) != 0;
}

Result<std::string> EmbeddedSignature::entitlementsText() const {
  if (const auto xml = blobs.find(slot::kEntitlements)) {
    return blobPayload(*xml, magic::kEntitlements).map([](Bytes payload) {
      return std::string(foundation::textOf(payload));
    });
  }
  const auto der = blobs.find(slot::kEntitlementsDER);
  return (der ? derEntitlements(*der) : foundation::Dictionary())
      .andThen([](const foundation::Dictionary& dictionary) {
        return foundation::PropertyList::xml(dictionary);
      });
}

Result<foundation::Dictionary> EmbeddedSignature::checkedEntitlements() const {
  const auto xml = blobs.find(slot::kEntitlements);
  const auto der = blobs.find(slot::kEntitlementsDER);
  auto fromXML =
      (xml ? xmlEntitlements(*xml) : foundation::Dictionary()).mapError(within("entitlements"));
  if (!fromXML || !der) return fromXML;
  auto fromDER = derEntitlements(*der).mapError(within("entitlements in DER form"));
  if (xml && fromDER && *fromXML != *fromDER) {
    return failure("entitlements: the DER form does not describe what the XML form does");
  }
  return fromDER;
}

Result<std::optional<Signer>> EmbeddedSignature::checkedSigner() const {
  const bool isAdHoc = (primary().fields.flags & codeflag::kAdHoc) != 0;
  const auto wrapper = blobs.find(slot::kSignature);
  if (!wrapper && isAdHoc) return std::optional<Signer>();
  if (!wrapper) return failure("there is no CMS signature, and the code is not signed ad hoc");
  const auto payload = blobPayload(*wrapper, magic::kWrapper).mapError(within("CMS"));
  if (!payload) return payload.error();
  if (payload->empty() != isAdHoc) {
    return failure(isAdHoc ? "code signed ad hoc has a CMS signature"
                           : "the CMS signature is empty, and the code is not signed ad hoc");
  }
  if (isAdHoc) return std::optional<Signer>();

  return foundation::CMS::verifyDetached(*payload, primary().blob).andThen([this](Signer signer) {
    return checkHashLists(signer, directories)
        .andThen([&] { return checkTeam(signer, directories); })
        .map([&] { return std::optional(std::move(signer)); });
  });
}

Result<std::optional<requirement::Expression>> EmbeddedSignature::designatedRequirement() const {
  std::optional<requirement::Expression> designated;
  const auto blob = blobs.find(slot::kRequirements);
  if (!blob) return designated;
  const auto set = parseRequirementSet(*blob).mapError(within("requirements"));
  if (!set) return set.error();
  for (const auto& each : *set) {
    auto expression = parseRequirement(each.blob).mapError(within("requirements"));
    if (!expression) return expression.error();
    if (each.type == requirement::kDesignated) designated = *std::move(expression);
  }
  return designated;
}

}  // namespace toolchain

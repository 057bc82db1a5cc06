#include "toolchain/sign/private/SignatureBuilder.h"

#include <algorithm>

#include "foundation/base/Assertion.h"
#include "foundation/crypto/CMS.h"
#include "foundation/crypto/DER.h"
#include "foundation/format/PropertyList.h"
#include "macho/core/Definitions.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace toolchain {

namespace {

namespace der = foundation::DER;

constexpr std::uint64_t kAlignment = 16;
/// What the platform's tool reserves for the CMS.
constexpr std::uint64_t kSignatureRoom = 18000;
/// Upper bound for the CMS without its certificates.
constexpr std::uint64_t kSignatureOverhead = 6000;

constexpr std::uint32_t version(std::uint32_t major, std::uint32_t minor, std::uint32_t patch) {
  return major << 16 | minor << 8 | patch;
}

/// Systems read SHA-256 from these versions on.
bool knowsOnlySHA1(const Slice& slice) {
  if (!slice.minimumOS) return false;
  switch (slice.platform) {
    case Platform::iOS:
    case Platform::tvOS:
      return *slice.minimumOS < version(11, 0, 0);
    case Platform::macOS:
      return *slice.minimumOS < version(10, 11, 4);
    case Platform::watchOS:
      return *slice.minimumOS < version(12, 0, 0);
    default:
      return false;
  }
}

/// The signed attributes that list the hashes of all CodeDirectories.
Result<std::vector<foundation::CMS::Attribute>> hashLists(
    const std::vector<CodeDirectory>& directories) {
  using foundation::Data;
  const foundation::Dictionary top = {{"cdhashes", cdHashList(directories)}};
  return foundation::PropertyList::xml(top).map([&](const std::string& text) {
    std::vector<Data> digests;
    for (const std::string& element : digestList(directories)) digests.emplace_back(element);
    return std::vector<foundation::CMS::Attribute>{
        {std::string(kCDHashListOID), {Data(der::element(der::kOctetString, text))}},
        {std::string(kDigestListOID), std::move(digests)}};
  });
}

std::vector<std::byte> requirementsFor(const SignatureContent& content) {
  if (!content.identity) return emptyRequirementSet();
  return makeRequirementSet(defaultRequirement(content.identifier, content.identity->chain));
}

std::uint64_t signatureRoom(const SignatureContent& content) {
  std::uint64_t size = kSignatureOverhead;
  if (content.identity) {
    for (const auto& certificate : content.identity->chain) size += certificate.der().size();
  }
  return std::max(size, kSignatureRoom);
}

}  // namespace

std::vector<HashType> hashTypesFor(const MachOFile& image) {
  if (std::ranges::none_of(image.slices(), knowsOnlySHA1)) return {HashType::sha256};
  return {HashType::sha1, HashType::sha256};
}

std::uint8_t pageShiftFor(const Slice& slice) {
  const auto type = static_cast<std::int32_t>(slice.cpuType);
  const bool hasLargePages = type == macho::CPU_TYPE_ARM64 || type == macho::CPU_TYPE_ARM64_32;
  return hasLargePages && slice.platform != Platform::tvOS ? 14 : 12;
}

SignatureBuilder::SignatureBuilder(const SignatureContent& content, const Slice& slice,
                                   std::uint64_t codeLimit)
    : content_(content) {
  fields_.flags = content.flags | (content.identity ? 0 : codeflag::kAdHoc);
  fields_.pageShift = pageShiftFor(slice);
  fields_.codeLimit = codeLimit;
  fields_.identifier = content.identifier;
  fields_.teamIdentifier = content.teamIdentifier;
  fields_.execSegmentBase = slice.text->file.offset;
  fields_.execSegmentLimit = slice.text->file.size;
  blobs_.push_back({slot::kRequirements, requirementsFor(content)});
  if (!slice.isMainExecutable()) return;
  fields_.execSegmentFlags = execseg::kMainBinary;
  if (!content.entitlements) return;
  fields_.execSegmentFlags |= executableSegmentFlags(content.entitlements->dictionary);
  blobs_.push_back({slot::kEntitlements, entitlementsBlob(*content.entitlements)});
  blobs_.push_back({slot::kEntitlementsDER, entitlementsDERBlob(*content.entitlements)});
}

std::uint32_t SignatureBuilder::specialSlotCount() const {
  return std::max(blobs_.back().slot, content_.isSealed ? slot::kResources : 0);
}

std::uint64_t SignatureBuilder::room() const {
  const auto pages = static_cast<std::uint32_t>(pageCount(fields_.codeLimit, fields_.pageShift));
  const std::uint64_t entries = blobs_.size() + content_.hashTypes.size() + 1;
  std::uint64_t size = 12 + 8 * entries + signatureRoom(content_);
  for (const Blob& blob : blobs_) size += blob.bytes.size();
  for (const HashType type : content_.hashTypes) {
    CodeDirectoryFields fields = fields_;
    fields.hashType = type;
    size += reservedCodeDirectorySize(fields, specialSlotCount(), pages);
  }
  return (size + kAlignment - 1) / kAlignment * kAlignment;
}

SpecialHashes SignatureBuilder::specialHashes(HashType type) const {
  SpecialHashes hashes;
  if (content_.infoPlist) hashes.emplace(slot::kInfoPlist, hashOf(*content_.infoPlist, type));
  if (content_.resources) hashes.emplace(slot::kResources, hashOf(*content_.resources, type));
  for (const Blob& blob : blobs_) hashes.emplace(blob.slot, hashOf(blob.bytes, type));
  return hashes;
}

std::vector<std::vector<std::byte>> SignatureBuilder::directories(
    const std::vector<PageHashes>& pages) const {
  std::vector<std::vector<std::byte>> result;
  for (const HashType type : content_.hashTypes) {
    const auto hashes = std::ranges::find(pages, type, &PageHashes::type);
    foundation::assertThat(hashes != pages.end() && hashes->pageShift == fields_.pageShift,
                           "every hash type was taken",
                           {__func__, "SignatureBuilder.cpp", __LINE__});
    CodeDirectoryFields fields = fields_;
    fields.hashType = type;
    result.push_back(makeCodeDirectory(fields, specialHashes(type), hashes->hashes));
  }
  return result;
}

Result<std::vector<std::byte>> SignatureBuilder::wrapper(
    const std::vector<std::vector<std::byte>>& directories) const {
  if (!content_.identity) return makeBlob(magic::kWrapper, {});
  std::vector<CodeDirectory> parsed;
  for (const auto& blob : directories) {
    auto directory = CodeDirectory::parse(blob);
    if (!directory) return directory.error();
    parsed.push_back(std::move(*directory));
  }
  return hashLists(parsed)
      .andThen([&](const std::vector<foundation::CMS::Attribute>& lists) {
        return foundation::CMS::signDetached(directories.front(), content_.identity->identity,
                                             content_.identity->chain, content_.signingTime, lists);
      })
      .map([](const auto& message) { return makeBlob(magic::kWrapper, message.bytes()); });
}

Result<std::vector<std::byte>> SignatureBuilder::build(const std::vector<PageHashes>& pages) const {
  const auto all = directories(pages);
  const auto signature = wrapper(all);
  if (!signature) return signature.error();
  std::vector<BlobEntry> entries = {{slot::kSignature, *signature}};
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto alternate = slot::kAlternateCodeDirectories + static_cast<std::uint32_t>(i) - 1;
    entries.push_back({i == 0 ? slot::kCodeDirectory : alternate, all[i]});
  }
  for (const Blob& blob : blobs_) entries.push_back({blob.slot, blob.bytes});
  auto result = makeSuperBlob(magic::kEmbeddedSignature, std::move(entries));
  if (result.size() > room()) {
    return failure("signature too large to embed: " + std::to_string(result.size()) +
                   " bytes in room for " + std::to_string(room()));
  }
  return result;
}

}  // namespace toolchain

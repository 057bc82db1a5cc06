#include "toolchain/signature/CodeDirectory.h"

#include <algorithm>
#include <array>

#include "foundation/base/Assertion.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

// The fixed part grows with the version.
constexpr std::uint32_t kEarliest = 0x20001;
constexpr std::uint32_t kSupportsScatter = 0x20100;
constexpr std::uint32_t kSupportsTeam = 0x20200;
constexpr std::uint32_t kSupportsLargeCode = 0x20300;
constexpr std::uint32_t kSupportsExecSegment = 0x20400;
constexpr std::uint32_t kSupportsRuntime = 0x20500;
constexpr std::size_t kLargestHeader = 96;

constexpr std::string_view kSHA256 = "2.16.840.1.101.3.4.2.1";

std::size_t headerSize(std::uint32_t version) {
  if (version >= kSupportsRuntime) return 96;
  if (version >= kSupportsExecSegment) return 88;
  if (version >= kSupportsLargeCode) return 64;
  if (version >= kSupportsTeam) return 52;
  return version >= kSupportsScatter ? 48 : 44;
}

struct HashKind {
  HashType type;
  std::size_t size;
  std::string_view name;
  foundation::DigestKind digest;
  std::string_view oid;
};
/// The first row stands for every number without a meaning; the others get stronger, in the
/// kernel's order.
constexpr std::array<HashKind, 5> kHashKinds = {{
    {HashType{}, 0, "unknown", foundation::DigestKind::sha256, ""},
    {HashType::sha1, 20, "sha1", foundation::DigestKind::sha1, "1.3.14.3.2.26"},
    {HashType::sha256Truncated, 20, "sha256-truncated", foundation::DigestKind::sha256, kSHA256},
    {HashType::sha256, 32, "sha256", foundation::DigestKind::sha256, kSHA256},
    {HashType::sha384, 48, "sha384", foundation::DigestKind::sha384, "2.16.840.1.101.3.4.2.2"},
}};

const HashKind& kindOf(HashType type) {
  const auto* at = std::ranges::find(kHashKinds, type, &HashKind::type);
  return at == kHashKinds.end() ? kHashKinds.front() : *at;
}

/// NUL-terminated text at `offset`; absent when it does not end inside the blob.
std::optional<std::string> textAt(Bytes blob, std::uint32_t offset) {
  if (offset >= blob.size()) return std::nullopt;
  const std::string_view rest = foundation::textOf(blob.subspan(offset));
  const auto end = rest.find('\0');
  if (end == std::string_view::npos) return std::nullopt;
  return std::string(rest.substr(0, end));
}

foundation::Error outside(std::string_view what, std::uint64_t value, std::size_t size) {
  return failure(std::string(what) + " " + std::to_string(value) + " lies outside its " +
                 std::to_string(size) + " bytes");
}

Result<CodeDirectoryFields> parseFields(Bytes blob) {
  if (blob.size() < headerSize(kEarliest)) {
    return failure(std::to_string(blob.size()) + " bytes are too few");
  }
  const auto at = [&](std::uint64_t offset) { return bigEndian32At(blob, offset).value_or(0); };
  CodeDirectoryFields fields;
  fields.version = at(8);
  if (fields.version < kEarliest || fields.version >= 0x30000) {
    return failure("version " + hex(fields.version) + " is not supported");
  }
  if (blob.size() < headerSize(fields.version)) {
    return failure(std::to_string(blob.size()) + " bytes are too few for version " +
                   hex(fields.version));
  }
  fields.flags = at(12);
  fields.codeLimit = at(32);
  fields.hashType = static_cast<HashType>(blob[37]);
  fields.platform = std::to_integer<std::uint8_t>(blob[38]);
  fields.pageShift = std::to_integer<std::uint8_t>(blob[39]);
  if (fields.version >= kSupportsLargeCode) {
    if (const auto limit = bigEndian64At(blob, 56); limit && *limit) fields.codeLimit = *limit;
  }
  if (fields.version >= kSupportsExecSegment) {
    fields.execSegmentBase = *bigEndian64At(blob, 64);
    fields.execSegmentLimit = *bigEndian64At(blob, 72);
    fields.execSegmentFlags = *bigEndian64At(blob, 80);
  }
  if (fields.version >= kSupportsRuntime) fields.runtimeVersion = at(88);
  const auto identifier = textAt(blob, at(20));
  if (!identifier) return outside("identifier offset", at(20), blob.size());
  fields.identifier = *identifier;
  if (fields.version >= kSupportsTeam && at(48)) {
    const auto team = textAt(blob, at(48));
    if (!team) return outside("team offset", at(48), blob.size());
    fields.teamIdentifier = *team;
  }
  return fields;
}

Result<> checkHashes(const CodeDirectory& directory, std::uint32_t hashOffset) {
  const CodeDirectoryFields& fields = directory.fields;
  const std::size_t size = hashSize(fields.hashType);
  const auto stored = std::to_integer<std::size_t>(directory.blob[36]);
  if (size == 0) {
    return failure("hash type " + std::to_string(static_cast<int>(fields.hashType)) +
                   " is unknown");
  }
  if (stored != size) {
    return failure("hash size " + std::to_string(stored) + " is not " + std::to_string(size));
  }
  if (hashOffset > directory.blob.size() || directory.specialSlotCount > hashOffset / size ||
      directory.codeSlotCount > (directory.blob.size() - hashOffset) / size) {
    return outside("hash offset", hashOffset, directory.blob.size());
  }
  if (fields.pageShift > 31) {
    return failure("page size 2^" + std::to_string(fields.pageShift) + " is too large");
  }
  if (pageCount(fields.codeLimit, fields.pageShift) != directory.codeSlotCount) {
    return failure(std::to_string(directory.codeSlotCount) +
                   " page hashes do not fit a code limit of " + std::to_string(fields.codeLimit));
  }
  return {};
}

std::vector<std::byte> fullDigest(Bytes bytes, HashType type) {
  foundation::Digest digest(digestKind(type));
  std::vector<std::byte> hash(digest.size());
  digest.update(bytes);
  digest.finish(hash);
  return hash;
}

}  // namespace

std::size_t hashSize(HashType type) { return kindOf(type).size; }
std::ptrdiff_t strength(HashType type) { return &kindOf(type) - kHashKinds.data(); }
std::string_view hashName(HashType type) { return kindOf(type).name; }
foundation::DigestKind digestKind(HashType type) { return kindOf(type).digest; }
std::string_view digestOID(HashType type) { return kindOf(type).oid; }

std::vector<std::byte> hashOf(Bytes bytes, HashType type) {
  auto hash = fullDigest(bytes, type);
  hash.resize(hashSize(type));
  return hash;
}

Result<CodeDirectory> CodeDirectory::parse(Bytes blob) {
  return blobPayload(blob, magic::kCodeDirectory)
      .andThen([&](Bytes) { return parseFields(blob); })
      .andThen([&](CodeDirectoryFields fields) {
        CodeDirectory directory;
        directory.fields = std::move(fields);
        directory.blob = blob;
        directory.hashOffset_ = *bigEndian32At(blob, 16);
        directory.specialSlotCount = *bigEndian32At(blob, 24);
        directory.codeSlotCount = *bigEndian32At(blob, 28);
        return checkHashes(directory, directory.hashOffset_).map([&] { return directory; });
      })
      .mapError(within("CodeDirectory"));
}

Bytes CodeDirectory::specialHash(std::uint32_t slot) const {
  if (slot == 0 || slot > specialSlotCount) return {};
  const std::size_t size = hashSize(fields.hashType);
  return blob.subspan(hashOffset_ - slot * size, size);
}

Bytes CodeDirectory::codeHash(std::uint32_t page) const {
  const std::size_t size = hashSize(fields.hashType);
  return blob.subspan(hashOffset_ + page * size, size);
}

Bytes CodeDirectory::codeHashes() const {
  return blob.subspan(hashOffset_, codeSlotCount * hashSize(fields.hashType));
}

std::vector<std::byte> CodeDirectory::fullHash() const { return fullDigest(blob, fields.hashType); }

std::vector<std::byte> CodeDirectory::cdHash() const {
  auto hash = fullHash();
  hash.resize(20);
  return hash;
}

Result<> checkUnused(const CodeDirectory& directory) {
  struct Field {
    const char* name;
    std::uint64_t offset;
    std::uint32_t since;
  };
  constexpr std::array<Field, 3> kFields = {Field{"spare field 2", 40, kEarliest},
                                            Field{"scatter offset", 44, kSupportsScatter},
                                            Field{"spare field 3", 52, kSupportsLargeCode}};
  const CodeDirectoryFields& fields = directory.fields;
  for (const auto& [name, offset, since] : kFields) {
    const auto value = bigEndian32At(directory.blob, offset).value_or(0);
    if (fields.version < since || value == 0) continue;
    return failure(std::string(name) + " is " + std::to_string(value) + ", not 0");
  }
  if (const auto unknown = fields.flags & ~codeflag::kKnown) {
    return failure("flags " + hex(unknown) + " are unknown");
  }
  const Bytes hashes = directory.codeHashes();
  if (const auto tail =
          directory.blob.data() + directory.blob.size() - (hashes.data() + hashes.size())) {
    return failure(std::to_string(tail) + " bytes follow the hashes");
  }
  const std::uint32_t last = directory.specialSlotCount;
  if (last != 0 && foundation::isZero(directory.specialHash(last))) {
    return failure("special slot " + std::to_string(last) + " is empty, and the last");
  }
  return {};
}

std::uint64_t pageCount(std::uint64_t codeLimit, std::uint8_t pageShift) {
  if (pageShift == 0) return codeLimit == 0 ? 0 : 1;
  const std::uint64_t page = std::uint64_t{1} << pageShift;
  return codeLimit / page + (codeLimit % page != 0 ? 1 : 0);
}

std::vector<std::byte> makeCodeDirectory(const CodeDirectoryFields& fields,
                                         const SpecialHashes& special, Bytes pageHashes) {
  const std::size_t size = hashSize(fields.hashType);
  const std::uint32_t specialCount = special.empty() ? 0 : special.rbegin()->first;
  const std::size_t header = headerSize(fields.version);
  const bool isLarge = fields.codeLimit > UINT32_MAX;
  const std::size_t team = header + fields.identifier.size() + 1;
  const std::size_t hashes =
      team + (fields.teamIdentifier.empty() ? 0 : fields.teamIdentifier.size() + 1) +
      specialCount * size;
  ByteWriter out;
  out.u32(magic::kCodeDirectory);
  out.u32(static_cast<std::uint32_t>(hashes + pageHashes.size()));
  out.u32(fields.version);
  out.u32(fields.flags);
  out.u32(static_cast<std::uint32_t>(hashes));
  out.u32(static_cast<std::uint32_t>(header));
  out.u32(specialCount);
  out.u32(static_cast<std::uint32_t>(pageHashes.size() / size));
  out.u32(isLarge ? UINT32_MAX : static_cast<std::uint32_t>(fields.codeLimit));
  out.u8(static_cast<std::uint8_t>(size));
  out.u8(static_cast<std::uint8_t>(fields.hashType));
  out.u8(fields.platform);
  out.u8(fields.pageShift);
  out.u32(0);
  out.u32(0);
  out.u32(fields.teamIdentifier.empty() ? 0 : static_cast<std::uint32_t>(team));
  out.u32(0);
  out.u64(isLarge ? fields.codeLimit : 0);
  out.u64(fields.execSegmentBase);
  out.u64(fields.execSegmentLimit);
  out.u64(fields.execSegmentFlags);
  if (fields.version >= kSupportsRuntime) {
    out.u32(fields.runtimeVersion);
    out.u32(0);
  }
  foundation::assertThat(out.size() == header, "version has an executable segment",
                         {__func__, "CodeDirectory.cpp", __LINE__});
  out.append(fields.identifier);
  out.u8(0);
  if (!fields.teamIdentifier.empty()) {
    out.append(fields.teamIdentifier);
    out.u8(0);
  }
  for (std::uint32_t slot = specialCount; slot > 0; --slot) {
    const auto hash = special.find(slot);
    if (hash == special.end()) {
      out.zeros(size);
    } else {
      out.append(hash->second);
    }
  }
  out.append(pageHashes);
  return out.take();
}

std::uint64_t reservedCodeDirectorySize(const CodeDirectoryFields& fields,
                                        std::uint32_t specialSlots, std::uint32_t pages) {
  const std::uint64_t team = fields.teamIdentifier.empty() ? 0 : fields.teamIdentifier.size() + 1;
  return kLargestHeader + fields.identifier.size() + 1 + team +
         (std::uint64_t{specialSlots} + pages) * hashSize(fields.hashType);
}

}  // namespace toolchain

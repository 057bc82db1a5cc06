#include "toolchain/signature/Blobs.h"

#include <algorithm>

#include "foundation/base/Assertion.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

constexpr std::size_t kBlobHeaderSize = 8;
constexpr std::size_t kSuperBlobHeaderSize = 12;
constexpr std::size_t kIndexEntrySize = 8;

template <class T>
std::optional<T> bigEndianAt(Bytes bytes, std::uint64_t offset) {
  const auto window = foundation::slice(bytes, offset, sizeof(T));
  if (!window) return std::nullopt;
  T value = 0;
  for (const std::byte byte : *window) value = (value << 8) | std::to_integer<T>(byte);
  return value;
}

std::uint32_t length32(std::size_t size) {
  foundation::assertThat(size <= UINT32_MAX, "size <= UINT32_MAX",
                         {__func__, "Blobs.cpp", __LINE__});
  return static_cast<std::uint32_t>(size);
}

}  // namespace

std::optional<std::uint32_t> bigEndian32At(Bytes bytes, std::uint64_t offset) {
  return bigEndianAt<std::uint32_t>(bytes, offset);
}

std::optional<std::uint64_t> bigEndian64At(Bytes bytes, std::uint64_t offset) {
  return bigEndianAt<std::uint64_t>(bytes, offset);
}

void ByteWriter::u8(std::uint8_t value) { bytes_.push_back(std::byte{value}); }

void ByteWriter::u32(std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) u8(static_cast<std::uint8_t>(value >> shift));
}

void ByteWriter::u64(std::uint64_t value) {
  u32(static_cast<std::uint32_t>(value >> 32));
  u32(static_cast<std::uint32_t>(value));
}

void ByteWriter::append(Bytes bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

void ByteWriter::zeros(std::size_t count) { bytes_.resize(bytes_.size() + count); }

void ByteWriter::patch32(std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    bytes_.at(offset + i) = static_cast<std::byte>(value >> (24 - 8 * i));
  }
}

std::vector<std::byte> makeBlob(std::uint32_t magic, Bytes payload) {
  ByteWriter blob;
  blob.u32(magic);
  blob.u32(length32(payload.size() + kBlobHeaderSize));
  blob.append(payload);
  return blob.take();
}

Result<Bytes> blobPayload(Bytes blob, std::uint32_t magic) {
  const auto found = bigEndian32At(blob, 0);
  const auto length = bigEndian32At(blob, 4);
  if (!found || !length)
    return failure("blob of " + std::to_string(blob.size()) + " bytes is truncated");
  if (*found != magic) return failure("blob magic is " + hex(*found) + ", not " + hex(magic));
  if (*length != blob.size()) {
    return failure("blob length " + std::to_string(*length) + " is not the " +
                   std::to_string(blob.size()) + " bytes it has");
  }
  return blob.subspan(kBlobHeaderSize);
}

std::vector<std::byte> makeSuperBlob(std::uint32_t magic, std::vector<BlobEntry> entries) {
  std::ranges::sort(entries, {}, &BlobEntry::slot);
  std::size_t offset = kSuperBlobHeaderSize + entries.size() * kIndexEntrySize;
  ByteWriter out;
  out.u32(magic);
  out.u32(0);
  out.u32(length32(entries.size()));
  for (const BlobEntry& entry : entries) {
    out.u32(entry.slot);
    out.u32(length32(offset));
    offset += entry.bytes.size();
  }
  for (const BlobEntry& entry : entries) out.append(entry.bytes);
  out.patch32(4, length32(out.size()));
  return out.take();
}

Result<SuperBlob> SuperBlob::parse(Bytes area, std::uint32_t magic, Gaps gaps) {
  const bool isStrict = gaps == Gaps::refused;
  const auto found = bigEndian32At(area, 0);
  const auto length = bigEndian32At(area, 4);
  const auto count = bigEndian32At(area, 8);
  if (!found || !length || !count) {
    return failure("superblob of " + std::to_string(area.size()) + " bytes is truncated");
  }
  if (*found != magic) return failure("superblob magic is " + hex(*found) + ", not " + hex(magic));
  if (*length > area.size() || *length < kSuperBlobHeaderSize) {
    return failure("superblob length " + std::to_string(*length) + " does not fit its area of " +
                   std::to_string(area.size()));
  }
  if (*count > (*length - kSuperBlobHeaderSize) / kIndexEntrySize) {
    return failure("superblob count " + std::to_string(*count) + " does not fit its length " +
                   std::to_string(*length));
  }
  SuperBlob result;
  result.bytes_ = area.first(*length);
  std::uint64_t expected = kSuperBlobHeaderSize + std::uint64_t{*count} * kIndexEntrySize;
  for (std::uint32_t i = 0; i < *count; ++i) {
    const std::uint64_t index = kSuperBlobHeaderSize + std::uint64_t{i} * kIndexEntrySize;
    const std::uint32_t slot = *bigEndian32At(result.bytes_, index);
    const std::uint32_t offset = *bigEndian32At(result.bytes_, index + 4);
    const std::string where =
        "superblob entry " + std::to_string(i) + " of " + std::to_string(*count);
    if (!result.entries_.empty() && slot <= result.entries_.back().slot) {
      return failure(where + ": slot " + hex(slot) + " does not ascend");
    }
    if (isStrict ? offset != expected : offset < expected || offset > *length) {
      return failure(where + ": offset " + std::to_string(offset) + " is not " +
                     std::to_string(expected) + ", where the blob before it ends");
    }
    const auto blobLength = bigEndian32At(result.bytes_, std::uint64_t{offset} + 4);
    if (!blobLength || *blobLength < kBlobHeaderSize || *blobLength > *length - offset) {
      return failure(where + ": blob at " + std::to_string(offset) + " runs past the superblob");
    }
    result.entries_.push_back({slot, result.bytes_.subspan(offset, *blobLength)});
    expected = std::uint64_t{offset} + *blobLength;
  }
  if (isStrict && expected != *length) {
    return failure("superblob length " + std::to_string(*length) + " is not " +
                   std::to_string(expected) + ", where its last blob ends");
  }
  return result;
}

std::optional<Bytes> SuperBlob::find(std::uint32_t slot) const {
  const auto at = std::ranges::find(entries_, slot, &BlobEntry::slot);
  return at == entries_.end() ? std::nullopt : std::optional(at->bytes);
}

}  // namespace toolchain

#pragma once

#include <cstdint>
#include <vector>

#include "toolchain/common/Messages.h"
#include "toolchain/common/Pieces.h"
#include "toolchain/image/MachOFile.h"

/// Where everything of a file lies once its slices have room for signatures.
namespace toolchain {

/// A slice with its load commands as they will be. Refers to the image's bytes.
struct SliceLayout {
  /// Header and load commands, up to where the mapped bytes go on unchanged.
  std::vector<std::byte> head;
  /// From the end of `head` to the end of what stays.
  Bytes rest;
  /// Bytes of zero between that and the signature; hashed as code.
  std::vector<std::byte> fill;
  /// Where the signature begins, from the slice's start; what the hashes cover. 0 pages of
  /// signature follow when a signature is taken away.
  std::uint64_t codeLimit = 0;
  /// Bytes kept for the signature.
  std::uint64_t room = 0;
  /// From the file's start.
  std::uint64_t fileOffset = 0;

  /// Everything before the signature.
  [[nodiscard]] Pieces code() const { return {head, rest, fill}; }
  [[nodiscard]] std::uint64_t size() const { return codeLimit + room; }
};

/// What everybody who reads a signed slice must agree on: segments lie in the file in the order of
/// their load commands without overlap, `__LINKEDIT` last, and the signature, if any, lies in it.
Result<> checkSegments(const Slice& slice);

/// Where the signature of this slice will begin: where the old one did, else behind the slice's
/// end. Fails when there is no place for a load command, `__LINKEDIT` is missing or not last,
/// something follows an old signature, or the slice is encrypted.
Result<std::uint64_t> signatureOffset(const MachOFile& image, const Slice& slice);

/// The slice with `room` bytes (a multiple of 16) for a signature.
Result<SliceLayout> layOut(const MachOFile& image, const Slice& slice, std::uint64_t room);

/// The slice without its signature and the load command for it.
Result<SliceLayout> layOutUnsigned(const MachOFile& image, const Slice& slice);

/// A whole file: gives every slice its place and makes the universal header, 16 KiB apart and
/// nothing behind the last slice.
struct FileLayout {
  std::vector<SliceLayout> slices;
  /// Universal header with the filling up to the first slice; empty for a thin file.
  std::vector<std::byte> header;
};
Result<FileLayout> layOutFile(const MachOFile& image, std::vector<SliceLayout> slices);

/// Bytes of the whole file.
std::uint64_t fileSize(const FileLayout& layout);

/// Where a part of the file goes; what no part covers is zero. Refers to the layout.
struct FilePart {
  std::uint64_t offset = 0;
  Pieces content;
};
/// Everything but the signatures.
std::vector<FilePart> codeParts(const FileLayout& layout);

}  // namespace toolchain

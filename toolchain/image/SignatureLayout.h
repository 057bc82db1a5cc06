#pragma once

#include <cstdint>
#include <vector>

#include "toolchain/common/Messages.h"
#include "toolchain/common/Pieces.h"
#include "toolchain/image/MachOFile.h"

/// Where everything in a file goes once its slices have room for signatures.
namespace toolchain {

/// A slice as it will be. Refers to the file's bytes.
struct SliceLayout {
  /// Header and load commands.
  std::vector<std::byte> head;
  /// The unchanged bytes after them.
  Bytes rest;
  /// Zeros between those and the signature; hashed as code.
  std::vector<std::byte> fill;
  /// What the hashes cover; the signature begins here, counting from the start of the slice.
  std::uint64_t codeLimit = 0;
  /// Bytes reserved for the signature; 0 if it is removed.
  std::uint64_t room = 0;
  /// From the start of the file.
  std::uint64_t fileOffset = 0;

  /// Everything before the signature.
  [[nodiscard]] Pieces code() const { return {head, rest, fill}; }
  [[nodiscard]] std::uint64_t size() const { return codeLimit + room; }
};

/// Fails unless the segments lie in the file in the order of their load commands without overlap,
/// `__LINKEDIT` last, and the signature, if any, lies in `__LINKEDIT`. Whoever reads a signed slice
/// must be able to rely on this.
Result<> checkSegments(const Slice& slice);

/// True if nothing follows `end` but the few zero bytes that the platform's own tools leave after a
/// signature.
bool endsSlice(Bytes slice, std::uint64_t end);

/// Where the signature of this slice will begin: where the old one does, else at the aligned end of
/// the slice. Fails if there is no room for a load command, `__LINKEDIT` is missing or not last, an
/// old signature is followed by more bytes, or the slice is encrypted.
Result<std::uint64_t> signatureOffset(const MachOFile& image, const Slice& slice);

/// The slice with `room` bytes (a multiple of 16) for a signature.
Result<SliceLayout> layOut(const MachOFile& image, const Slice& slice, std::uint64_t room);

/// The slice without its signature and LC_CODE_SIGNATURE.
Result<SliceLayout> layOutUnsigned(const MachOFile& image, const Slice& slice);

/// A whole file, its slices aligned to 16 KiB if it is universal; nothing follows the last one.
struct FileLayout {
  std::vector<SliceLayout> slices;
  /// Universal header, padded up to the first slice; empty for a thin file.
  std::vector<std::byte> header;
};
Result<FileLayout> layOutFile(const MachOFile& image, std::vector<SliceLayout> slices);

/// Bytes of the whole file.
std::uint64_t fileSize(const FileLayout& layout);

/// Everything but the signatures; what no part covers is zero. Refers to the layout.
std::vector<FilePart> codeParts(const FileLayout& layout);

}  // namespace toolchain

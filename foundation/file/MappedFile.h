#pragma once

#include <filesystem>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/file/MappingGuard.h"
#include "foundation/host/FileOpening.h"

namespace foundation {

/// Read-only view of a whole file.
///
/// The bytes live as long as this object; moving it does not move them. If another process
/// truncates the file meanwhile, the lost part reads as zeros: call `MappingGuard::checkAll` before
/// using anything that was read.
class MappedFile {
 public:
  /// An empty file gives an empty view. Fails with the path and the system's text when the file
  /// cannot be opened or mapped, or is not a regular file.
  static Result<MappedFile> open(const std::filesystem::path& path, Links links = Links::followed);
  /// The same; also hands the open file to the caller. The view itself does not need it.
  static Result<MappedFile> open(const std::filesystem::path& path, FileDescriptor& file,
                                 Links links = Links::followed);

  MappedFile() = default;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  ~MappedFile();

  [[nodiscard]] Bytes bytes() const { return bytes_; }
  /// `MappingGuard::check` of this mapping.
  [[nodiscard]] Result<> checkIntact() const { return guard_.check(); }

 private:
  Bytes bytes_;
  MappingGuard guard_;
};

}  // namespace foundation

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

/// Reads the central directory of a zip archive (PKWARE APPNOTE.TXT 6.3.10, with Zip64).
namespace archive {

/// An entry as the central directory declares it. Names are views into the archive's bytes.
struct ZipEntry {
  /// As stored: not empty, without NULs, "/" between components and after a folder's name.
  std::string_view name;
  /// From the Unicode-path extra field, unless its checksum is that of another name.
  std::optional<std::string_view> unicodeName = std::nullopt;
  /// Whether `name` is declared to be UTF-8.
  bool isUTF8 = false;
  /// The compression method: 0 is stored, 8 is deflated.
  std::uint16_t method = 0;
  /// In bytes.
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  /// Where the entry's local header begins, in bytes from the start of the archive.
  std::uint64_t headerOffset = 0;
  /// As in `lstat`; absent if the entry was not made on Unix.
  std::optional<std::uint32_t> unixMode = std::nullopt;
};

/// The local headers and the data are not read and may differ.
class ZipDirectory {
 public:
  /// Strict, so that no other reader sees other entries: the directory must end where the end
  /// records begin and contain exactly the entries that they count, the last end record is used,
  /// and nothing may follow its comment. Multi-part archives and offsets that do not start at the
  /// archive's first byte fail too. The error has the record, its offset and the offending value.
  static foundation::Result<ZipDirectory> read(foundation::Bytes archive);

  [[nodiscard]] const std::vector<ZipEntry>& entries() const { return entries_; }
  /// The sum of all entries, in bytes; saturates.
  [[nodiscard]] std::uint64_t uncompressedSize() const;

 private:
  std::vector<ZipEntry> entries_;
};

}  // namespace archive

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

/// Reads the central directory of a zip archive (PKWARE APPNOTE.TXT 6.3.10, with Zip64).
namespace archive {

/// An entry as the central directory declares it. The texts are views into the archive's bytes.
struct ZipEntry {
  /// As stored: neither empty nor with a NUL, "/" between the components and after a folder's name.
  std::string_view name;
  /// The UTF-8 name of the Unicode-path extra field; absent without one, and when it was made for
  /// another `name`.
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
  /// Type and permissions as `lstat` gives them; absent for an entry from a host other than Unix.
  std::optional<std::uint32_t> unixMode = std::nullopt;
};

/// What the directory says may differ from the local headers and from the data itself; neither is
/// looked at.
class ZipDirectory {
 public:
  /// Strict, so that no two readers see different entries: the directory must end where the end
  /// records begin, and hold just the entries that they count. The last end record counts, and no
  /// bytes may follow its comment. Fails with the part, its place and the offending value; archives
  /// in several parts and those with offsets that do not count from their start are failures, too.
  static foundation::Result<ZipDirectory> read(foundation::Bytes archive);

  [[nodiscard]] const std::vector<ZipEntry>& entries() const { return entries_; }
  /// The sum of the uncompressed sizes in bytes; the largest number when it would be larger.
  [[nodiscard]] std::uint64_t uncompressedSize() const;

 private:
  std::vector<ZipEntry> entries_;
};

}  // namespace archive

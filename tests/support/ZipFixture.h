#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace test {

/// A file to be packed: its path inside the archive and its content; "-> x" is a link to x.
struct PackedFile {
  std::string path;
  std::string content;
};
/// Packs the files with the real `zip`. The archive's name may be anything; returns it.
std::filesystem::path pack(const std::filesystem::path& archive,
                           const std::vector<PackedFile>& files);

/// An entry of a `ZipImage`'s directory; its data are `compressedSize` bytes of "d".
struct ZipItem {
  std::string name;
  std::uint32_t compressedSize = 1;
  std::uint32_t uncompressedSize = 1;
  std::string extra = "";
  /// The host is in the upper byte: 3 is Unix, 0 is MS-DOS.
  std::uint16_t madeBy = 3 << 8;
  std::uint16_t flags = 0;
  std::uint16_t unixMode = 0100644;
};

/// An extra field.
std::string zipField(std::uint16_t kind, const std::string& content);

/// Builds zip archives, valid and damaged ones, part by part.
class ZipImage {
 public:
  explicit ZipImage(const std::vector<ZipItem>& items);

  std::string data;
  std::string directory;
  std::string comment;

  [[nodiscard]] std::string bytes() const;
  /// With one value of the end record replaced: the `size` bytes at `offset`.
  [[nodiscard]] std::string withEnd(std::size_t offset, std::uint64_t value, int size) const;
  /// With Zip64 records, of which one value may be replaced as in `withEnd`.
  [[nodiscard]] std::string zip64(std::size_t offset = 0, std::uint64_t value = 0x06064b50,
                                  int size = 4) const;

 private:
  void add(const ZipItem& item);
  [[nodiscard]] std::string end(std::uint64_t count, std::uint64_t size,
                                std::uint64_t offset) const;

  std::uint64_t count_;
};

}  // namespace test

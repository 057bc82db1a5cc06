#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

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

inline std::string littleEndian(std::uint64_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) bytes += i < 8 ? static_cast<char>(number >> (8 * i)) : '\0';
  return bytes;
}

/// An extra field.
inline std::string zipField(std::uint16_t kind, const std::string& content) {
  return littleEndian(kind, 2) + littleEndian(content.size(), 2) + content;
}

/// Builds zip archives, valid and damaged ones, part by part.
class ZipImage {
 public:
  explicit ZipImage(const std::vector<ZipItem>& items) : count_(items.size()) {
    for (const ZipItem& item : items) add(item);
  }

  std::string data;
  std::string directory;
  std::string comment;

  /// With one value of the end record replaced: the `size` bytes at `offset`.
  [[nodiscard]] std::string withEnd(std::size_t offset, std::uint64_t value, int size) const {
    std::string bytes = end(count_, directory.size(), data.size());
    bytes.replace(offset, static_cast<std::size_t>(size), littleEndian(value, size));
    return data + directory + bytes + comment;
  }
  [[nodiscard]] std::string bytes() const {
    return data + directory + end(count_, directory.size(), data.size()) + comment;
  }
  /// With Zip64 records, of which one value may be replaced as in `withEnd`.
  [[nodiscard]] std::string zip64(std::size_t offset = 0, std::uint64_t value = 0x06064b50,
                                  int size = 4) const {
    std::string records = littleEndian(0x06064b50, 4) + littleEndian(44, 8) + littleEndian(45, 2) +
                          littleEndian(45, 2) + littleEndian(0, 8) + littleEndian(count_, 8) +
                          littleEndian(count_, 8) + littleEndian(directory.size(), 8) +
                          littleEndian(data.size(), 8) + littleEndian(0x07064b50, 4) +
                          littleEndian(0, 4) + littleEndian(data.size() + directory.size(), 8) +
                          littleEndian(1, 4);
    records.replace(offset, static_cast<std::size_t>(size), littleEndian(value, size));
    return data + directory + records + end(0xffff, 0xffffffff, 0xffffffff) + comment;
  }

 private:
  void add(const ZipItem& item) {
    const std::uint64_t offset = data.size();
    const std::string common = littleEndian(20, 2) + littleEndian(item.flags, 2) +
                               littleEndian(0, 10) + littleEndian(item.compressedSize, 4) +
                               littleEndian(item.uncompressedSize, 4) +
                               littleEndian(item.name.size(), 2);
    data += littleEndian(0x04034b50, 4) + common + littleEndian(0, 2) + item.name;
    if (item.compressedSize < 1000) data += std::string(item.compressedSize, 'd');
    directory += littleEndian(0x02014b50, 4) + littleEndian(item.madeBy, 2) + common +
                 littleEndian(item.extra.size(), 2) + littleEndian(0, 8) +
                 littleEndian(item.unixMode, 2) + littleEndian(offset, 4) + item.name + item.extra;
  }
  [[nodiscard]] std::string end(std::uint64_t count, std::uint64_t size,
                                std::uint64_t offset) const {
    return littleEndian(0x06054b50, 4) + littleEndian(0, 4) + littleEndian(count, 2) +
           littleEndian(count, 2) + littleEndian(size, 4) + littleEndian(offset, 4) +
           littleEndian(comment.size(), 2);
  }

  std::uint64_t count_;
};

}  // namespace test

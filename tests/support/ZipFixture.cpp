#include "tests/support/Test.h"

namespace test {

fs::path pack(const fs::path& archive, const std::vector<PackedFile>& files) {
  const TemporaryFolder folder;
  for (const auto& [path, content] : files) {
    fs::create_directories((folder / path).parent_path());
    if (content.starts_with("-> ")) {
      fs::create_symlink(content.substr(3), folder / path);
    } else {
      folder.write(path, content);
    }
  }
  writeFile(archive, "");  // with its parents
  outputOf({"sh", "-c", R"(cd "$0" && zip -qry "$1.zip" . && mv "$1.zip" "$1")", folder.path(),
            fs::absolute(archive)});
  return archive;
}

std::string zipField(std::uint16_t kind, const std::string& content) {
  return littleEndian(kind, 2) + littleEndian(content.size(), 2) + content;
}

ZipImage::ZipImage(const std::vector<ZipItem>& items) : count_(items.size()) {
  for (const ZipItem& item : items) add(item);
}

std::string ZipImage::bytes() const {
  return data + directory + end(count_, directory.size(), data.size()) + comment;
}

std::string ZipImage::withEnd(std::size_t offset, std::uint64_t value, int size) const {
  std::string record = end(count_, directory.size(), data.size());
  record.replace(offset, static_cast<std::size_t>(size), littleEndian(value, size));
  return data + directory + record + comment;
}

std::string ZipImage::zip64(std::size_t offset, std::uint64_t value, int size) const {
  std::string records = littleEndian(0x06064b50, 4) + littleEndian(44, 8) + littleEndian(45, 2) +
                        littleEndian(45, 2) + littleEndian(0, 8) + littleEndian(count_, 8) +
                        littleEndian(count_, 8) + littleEndian(directory.size(), 8) +
                        littleEndian(data.size(), 8) + littleEndian(0x07064b50, 4) +
                        littleEndian(0, 4) + littleEndian(data.size() + directory.size(), 8) +
                        littleEndian(1, 4);
  records.replace(offset, static_cast<std::size_t>(size), littleEndian(value, size));
  return data + directory + records + end(0xffff, 0xffffffff, 0xffffffff) + comment;
}

void ZipImage::add(const ZipItem& item) {
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

std::string ZipImage::end(std::uint64_t count, std::uint64_t size, std::uint64_t offset) const {
  return littleEndian(0x06054b50, 4) + littleEndian(0, 4) + littleEndian(count, 2) +
         littleEndian(count, 2) + littleEndian(size, 4) + littleEndian(offset, 4) +
         littleEndian(comment.size(), 2);
}

}  // namespace test

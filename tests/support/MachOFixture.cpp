#include "tests/support/MachOFixture.h"

#include <algorithm>

#include "tests/support/Test.h"

namespace test {
namespace {

/// Text in a field of `size` bytes.
std::string padded(std::string_view text, std::size_t size) {
  std::string field(text.substr(0, size));
  field.resize(size);
  return field;
}

std::uint32_t size32(std::size_t size) { return static_cast<std::uint32_t>(size); }

}  // namespace

std::string words(const std::vector<std::uint32_t>& values) {
  std::string bytes;
  for (const std::uint32_t value : values) bytes += littleEndian(value, 4);
  return bytes;
}

std::string poked(std::string bytes, std::size_t offset, std::uint32_t value) {
  return bytes.replace(offset, sizeof value, words({value}));
}

MachOImage& MachOImage::command(std::string bytes) {
  commands_.push_back(std::move(bytes));
  return *this;
}

MachOImage& MachOImage::command(std::uint32_t cmd, const std::vector<std::uint32_t>& numbers,
                                std::string_view bytes) {
  const std::string content = words(numbers) + std::string(bytes);
  return command(words({cmd, size32(8 + content.size())}) + content);
}

MachOImage& MachOImage::uuid(std::string_view hex) {
  return command(macho::LC_UUID, {}, fromHex(hex));
}

MachOImage& MachOImage::dylib(std::string_view path, std::uint32_t cmd) {
  constexpr std::uint32_t kHead = sizeof(macho::dylib_command);
  return command(cmd, {kHead, 0, 0, 0}, padded(path, (path.size() + 8) / 8 * 8));
}

MachOImage& MachOImage::segment(std::string_view name, std::uint64_t offset, std::uint64_t size,
                                const std::vector<MachOSection>& sections) {
  const int width = is64Bit() ? 8 : 4;
  std::string bytes = padded(name, 16);
  for (const std::uint64_t field : {0x10000 + offset, 2 * size, offset, size}) {
    bytes += littleEndian(field, width);
  }
  bytes += words({0, 0, size32(sections.size()), 0});
  for (const MachOSection& section : sections) {
    bytes += padded(section.name, 16) + padded(name, 16) + littleEndian(section.address, width) +
             littleEndian(section.size, width) +
             words({section.offset, 0, 0, 0, section.flags, 0, 0}) + littleEndian(0, width - 4);
  }
  return command(is64Bit() ? macho::LC_SEGMENT_64 : macho::LC_SEGMENT, {}, bytes);
}

MachOImage& MachOImage::signature(std::uint32_t offset, std::uint32_t size) {
  return command(macho::LC_CODE_SIGNATURE, {offset, size});
}

MachOImage& MachOImage::content(std::size_t offset, std::string bytes) {
  contents_.emplace_back(offset, std::move(bytes));
  return *this;
}

std::string MachOImage::bytes() const {
  std::string commands;
  for (const std::string& bytes : commands_) commands += bytes;
  std::string image =
      words({is64Bit() ? macho::MH_MAGIC_64 : macho::MH_MAGIC, static_cast<std::uint32_t>(cpuType_),
             static_cast<std::uint32_t>(cpuSubtype_), macho::MH_EXECUTE, size32(commands_.size()),
             size32(commands.size()),
             macho::MH_NOUNDEFS | macho::MH_DYLDLINK | macho::MH_TWOLEVEL | macho::MH_PIE}) +
      std::string(is64Bit() ? 4 : 0, '\0') + commands;
  for (const auto& [offset, bytes] : contents_) {
    image.resize(std::max(image.size(), offset + bytes.size()));
    image.replace(offset, bytes.size(), bytes);
  }
  return image;
}

std::string universalFile(const std::vector<FatSlice>& slices, std::uint32_t alignment,
                          std::optional<std::uint32_t> count) {
  std::string records =
      bigEndian(macho::FAT_MAGIC, 4) + bigEndian(count.value_or(size32(slices.size())), 4);
  const std::size_t unit = std::size_t{1} << alignment;
  std::string images(records.size() + slices.size() * sizeof(macho::fat_arch), '\0');
  for (const FatSlice& slice : slices) {
    images.resize((images.size() + unit - 1) / unit * unit);
    for (const auto field :
         {static_cast<std::uint32_t>(slice.cpuType), static_cast<std::uint32_t>(slice.cpuSubtype),
          slice.offset.value_or(size32(images.size())), size32(slice.bytes.size()), alignment}) {
      records += bigEndian(field, 4);
    }
    images += slice.bytes;
  }
  return images.replace(0, records.size(), records);
}

std::string llvmTool(const std::string& name) {
  static const std::string folder = outputOf({"llvm-config", "--bindir"});
  return folder.substr(0, folder.find('\n')) + "/" + name;
}

void linkImage(const std::filesystem::path& target, const std::string& architecture,
               const std::vector<std::string>& linkerOptions) {
  const std::string source = writeFile(target.string() + ".c", "int main(void) { return 0; }\n");
  const std::string object = target.string() + ".o";
  outputOf({llvmTool("clang"), "-target", architecture + "-apple-ios9.0", "-Os", "-ffreestanding",
            "-c", source, "-o", object});
  std::vector<std::string> link = {llvmTool("ld64.lld"),
                                   "-arch",
                                   architecture,
                                   "-platform_version",
                                   "ios",
                                   "9.0",
                                   "12.1",
                                   "-o",
                                   target,
                                   object};
  link.insert(link.end(), linkerOptions.begin(), linkerOptions.end());
  outputOf(link);
}

}  // namespace test

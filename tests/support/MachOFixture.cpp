#include "tests/support/MachOFixture.h"

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

std::string command(std::uint32_t cmd, const std::vector<std::uint32_t>& numbers,
                    std::string_view bytes) {
  const std::string content = words(numbers) + std::string(bytes);
  return words({cmd, size32(8 + content.size())}) + content;
}

std::string uuidCommand(std::string_view hex) { return command(macho::LC_UUID, {}, fromHex(hex)); }

std::string dylibCommand(std::string_view path, std::uint32_t cmd) {
  constexpr std::uint32_t kHead = sizeof(macho::dylib_command);
  return command(cmd, {kHead, 0, 0, 0}, padded(path, (path.size() + 8) / 8 * 8));
}

std::string segmentCommand(std::string_view name, std::uint64_t offset, std::uint64_t size,
                           const std::vector<MachOSection>& sections, bool is64Bit) {
  const auto number = [&](std::uint64_t value) { return littleEndian(value, is64Bit ? 8 : 4); };
  std::string bytes = padded(name, 16) + number(0x10000 + offset) + number(2 * size) +
                      number(offset) + number(size) + words({0, 0, size32(sections.size()), 0});
  for (const MachOSection& section : sections) {
    bytes += padded(section.name, 16) + padded(name, 16) + number(section.address) +
             number(section.size) + words({section.offset, 0, 0, 0, section.flags, 0, 0});
    if (is64Bit) bytes += words({0});
  }
  return command(is64Bit ? macho::LC_SEGMENT_64 : macho::LC_SEGMENT, {}, bytes);
}

std::string machO(const std::vector<std::string>& commands, Processor processor) {
  std::string all;
  for (const std::string& bytes : commands) all += bytes;
  const bool is64Bit = (processor.type & macho::CPU_ARCH_ABI64) != 0;
  const std::string header = words(
      {is64Bit ? macho::MH_MAGIC_64 : macho::MH_MAGIC, static_cast<std::uint32_t>(processor.type),
       static_cast<std::uint32_t>(processor.subtype), macho::MH_EXECUTE, size32(commands.size()),
       size32(all.size()),
       macho::MH_NOUNDEFS | macho::MH_DYLDLINK | macho::MH_TWOLEVEL | macho::MH_PIE});
  return header + std::string(is64Bit ? 4 : 0, '\0') + all;
}

std::string universalFile(const std::vector<FatSlice>& slices, std::uint32_t alignment,
                          std::optional<std::uint32_t> count) {
  std::string records =
      bigEndian(macho::FAT_MAGIC, 4) + bigEndian(count.value_or(size32(slices.size())), 4);
  const std::size_t unit = std::size_t{1} << alignment;
  std::string images(records.size() + slices.size() * sizeof(macho::fat_arch), '\0');
  for (const auto& [bytes, processor, offset] : slices) {
    images.resize((images.size() + unit - 1) / unit * unit);
    const auto header = foundation::readAt<macho::mach_header>(bytesOf(bytes), 0);
    const Processor own = processor ? *processor : Processor{header->cputype, header->cpusubtype};
    records += bigEndian(static_cast<std::uint32_t>(own.type), 4) +
               bigEndian(static_cast<std::uint32_t>(own.subtype), 4) +
               bigEndian(offset.value_or(size32(images.size())), 4) + bigEndian(bytes.size(), 4) +
               bigEndian(alignment, 4);
    images += bytes;
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
  std::vector<std::string> link = linkerOptions;
  link.insert(link.begin(), {llvmTool("ld64.lld"), "-arch", architecture, "-platform_version",
                             "ios", "9.0", "12.1", "-o", target, object});
  outputOf(link);
}

}  // namespace test

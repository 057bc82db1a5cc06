#include "tests/support/Test.h"

#include "foundation/crypto/Digest.h"

namespace test {

std::string fromHex(std::string_view digits) {
  std::string bytes;
  int high = -1;
  for (const char c : digits) {
    const int digit = foundation::hexDigit(c);
    if (digit < 0 && c != ' ' && c != '\n') throw std::invalid_argument(std::string(digits));
    if (digit < 0) continue;
    if (high >= 0) bytes += static_cast<char>(high << 4 | digit);
    high = high < 0 ? digit : -1;
  }
  if (high >= 0) throw std::invalid_argument(std::string(digits));
  return bytes;
}

std::string littleEndian(std::uint64_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) bytes += i < 8 ? static_cast<char>(number >> (8 * i)) : '\0';
  return bytes;
}

std::string bigEndian(std::uint64_t number, int size) {
  std::string bytes = littleEndian(number, size);
  std::ranges::reverse(bytes);
  return bytes;
}

std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  text.reserve(piece.size() * count);
  while (count-- > 0) text += piece;
  return text;
}

std::string noise(std::size_t size, std::uint32_t seed) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>((seed = seed * 1664525u + 1013904223u) >> 24);
  return bytes;
}

foundation::Bytes keepForFuzzing(const std::string& target, foundation::Bytes input) {
  constexpr std::size_t kMost = 20'000;
  const char* const folder = std::getenv("FUZZ_INPUTS");
  if (folder && input.size() <= kMost) {
    const std::string name = foundation::lowercaseHex(foundation::sha1(input)).substr(0, 12);
    writeFile(fs::path(folder) / target / ("row-" + name), foundation::textOf(input));
  }
  return input;
}

std::string plist(const foundation::Dictionary& dictionary) {
  auto text = foundation::PropertyList::xml(dictionary);
  if (!text) throw std::runtime_error(text.error().localizedDescription());
  return *std::move(text);
}

fs::path writePlist(const fs::path& path, const foundation::Dictionary& dictionary) {
  return writeFile(path, plist(dictionary));
}

}  // namespace test

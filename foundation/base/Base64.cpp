#include "foundation/base/Base64.h"

#include <array>
#include <cstdint>

namespace foundation {

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeValues() {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (std::size_t i = 0; i < kDigits.size(); ++i) {
    values[static_cast<unsigned char>(kDigits[i])] = static_cast<std::int8_t>(i);
  }
  return values;
}
constexpr auto kValues = makeValues();

}  // namespace

void appendBase64(std::string& out, Bytes bytes) {
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t left = bytes.size() - i;
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (j < left ? std::to_integer<std::uint32_t>(bytes[i + j]) : 0);
    }
    for (std::size_t digit = 0; digit < 4; ++digit) {
      out += digit <= left ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
  }
}

std::string decodeBase64(std::string_view text) {
  std::string out;
  out.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  int digits = 0;
  int padding = 0;
  for (const char c : text) {
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): an index, not a character; -1 for none
    const int value = kValues[static_cast<unsigned char>(c)];
    if (value < 0 && c != '=') continue;
    group = group << 6 | (value < 0 ? 0U : static_cast<std::uint32_t>(value));
    padding += c == '=' ? 1 : 0;
    if (++digits < 4) continue;
    for (int i = 0; i < 3 - padding; ++i) out += static_cast<char>(group >> (16 - 8 * i));
    group = 0;
    digits = 0;
    padding = 0;
  }
  return out;
}

}  // namespace foundation

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

bool decodeBase64(std::string_view text, std::span<std::byte> out) {
  if (text.size() != (out.size() + 2) / 3 * 4) return false;
  for (std::size_t i = 0; i * 3 < out.size(); ++i) {
    const std::size_t left = out.size() - i * 3;
    std::uint32_t group = 0;
    for (std::size_t digit = 0; digit < 4; ++digit) {
      const char c = text[i * 4 + digit];
      // NOLINTNEXTLINE(bugprone-signed-char-misuse): an index, not a character; -1 for none
      const int value = kValues[static_cast<unsigned char>(c)];
      if (digit > left ? c != '=' : value < 0) return false;
      group = group << 6 | (digit > left ? 0U : static_cast<std::uint32_t>(value));
    }
    for (std::size_t j = 0; j < 3; ++j) {
      const auto byte = static_cast<std::byte>(group >> (16 - 8 * j));
      if (j < left) out[i * 3 + j] = byte;
      // Unused bits must be zero, so that each byte string has exactly one encoding.
      if (j >= left && byte != std::byte{0}) return false;
    }
  }
  return true;
}

}  // namespace foundation

#include "toolchain/Base64.h"

#include <cstdint>

namespace toolchain {

void appendBase64(std::string& out, foundation::Bytes bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
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

}  // namespace toolchain

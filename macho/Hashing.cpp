#include "macho/Hashing.h"

#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"

namespace macho {

std::string QVTHashNSString(std::string_view text) {
  const std::string_view head = text.substr(0, text.find('\0'));
  return QVTHashBytes(head.data(), head.size());
}

std::string QVTHashBytes(const void* bytes, std::size_t length) {
  const auto digest = foundation::sha1({static_cast<const std::byte*>(bytes), length});
  return QVTNSDataToNSString(foundation::Data::copyOf(digest));
}

std::string QVTNSDataToNSString(const foundation::Data& data) {
  return foundation::lowercaseHex(data.bytes());
}

void QVTSafeHexToString(const void* bytes, std::size_t length, char* output) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const auto* const from = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; from && i < length; ++i) {
    *output++ = kDigits[from[i] >> 4];
    *output++ = kDigits[from[i] & 0xf];
  }
  *output = '\0';
}

}  // namespace macho

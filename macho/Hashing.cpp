#include "macho/Hashing.h"

#include <algorithm>

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
  const std::size_t size = bytes ? length : 0;
  const std::string hex = foundation::lowercaseHex({static_cast<const std::byte*>(bytes), size});
  *std::ranges::copy(hex, output).out = '\0';
}

}  // namespace macho

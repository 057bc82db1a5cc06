#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "foundation/base/Data.h"

namespace macho {

/// SHA-1 of the text's UTF-8 bytes up to its first zero byte, as 40 lower-case hexadecimal digits.
std::string QVTHashNSString(std::string_view text);
/// The same of any bytes.
std::string QVTHashBytes(const void* bytes, std::size_t length);

/// Two lower-case hexadecimal digits per byte.
std::string QVTNSDataToNSString(const foundation::Data& data);
/// The same, zero-terminated, into `output`, which must hold 2 × length + 1 characters. Null bytes
/// give an empty string.
void QVTSafeHexToString(const void* bytes, std::size_t length, char* output);

}  // namespace macho

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Bytes.h"

namespace foundation {

/// True when `text` is well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
bool isUTF8(std::string_view text);

/// Absent unless `bytes` are well-formed UTF-8.
std::optional<std::string> stringFromUTF8(Bytes bytes);

/// Ill-formed sequences become U+FFFD.
std::string lossyUTF8(Bytes bytes);

/// Appends the code point's UTF-8 form. Surrogates and values above U+10FFFF append U+FFFD.
void appendUTF8(std::string& out, char32_t codePoint);

/// UTF-8 from UTF-16 units in host order; lone surrogates become U+FFFD.
std::string utf8FromUTF16(std::u16string_view units);

/// `text` on one line and safe to show on a terminal, for untrusted values in messages: control
/// characters (U+0000 to U+001F, U+007F to U+009F) become `\n`, `\r`, `\t` or `\u001b`, bytes that
/// are not UTF-8 become `\xff`. Everything else is kept, backslashes included.
std::string escapingControlCharacters(std::string_view text);
template <class T>
std::optional<std::string> escapingControlCharacters(const std::optional<T>& text) {
  return text ? std::optional(escapingControlCharacters(*text)) : std::nullopt;
}

/// A view of `text` without leading and trailing Unicode white space and newlines.
std::string_view trimmed(std::string_view text);

/// Empty pieces are kept: n separators always give n + 1 pieces.
std::vector<std::string> split(std::string_view text, char separator);

std::string joined(const std::vector<std::string>& pieces, std::string_view separator);

/// Of ASCII.
bool isDigit(char c);
bool isLetter(char c);
/// The value of a hexadecimal digit; -1 for any other character.
int hexDigit(char c);

/// ASCII letters only; other bytes are kept.
std::string lowercased(std::string_view text);

/// Two digits per byte, high nibble first.
std::string lowercaseHex(Bytes bytes);
std::string uppercaseHex(Bytes bytes);

/// The platform's string-to-boolean reading: true when the first character after leading blanks,
/// one sign and leading zeros is Y, y, T, t or a digit 1 to 9.
bool boolValue(std::string_view text);

}  // namespace foundation

#include "foundation/base/Text.h"

#include <algorithm>

#include "foundation/base/UnicodeText.h"

namespace foundation {

namespace {

constexpr char32_t kReplacement = 0xfffd;

bool isSurrogate(char32_t codePoint) { return codePoint >= 0xd800 && codePoint <= 0xdfff; }

bool isSpaceOrNewline(char32_t c) {
  return c == ' ' || (c >= 0x09 && c <= 0x0d) || c == 0x85 || c == 0xa0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200b) || c == 0x2028 || c == 0x2029 || c == 0x202f || c == 0x205f ||
         c == 0x3000;
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7f && c <= 0x9f); }

void appendEscape(std::string& out, char32_t control) {
  if (control == '\n') {
    out += "\\n";
  } else if (control == '\r') {
    out += "\\r";
  } else if (control == '\t') {
    out += "\\t";
  } else {
    const auto byte = static_cast<std::byte>(control);
    out += "\\u00" + lowercaseHex({&byte, 1});
  }
}

std::string hex(Bytes bytes, std::string_view digits) {
  std::string out;
  out.reserve(bytes.size() * 2);
  for (const std::byte byte : bytes) {
    out += digits[std::to_integer<unsigned>(byte) >> 4];
    out += digits[std::to_integer<unsigned>(byte) & 15];
  }
  return out;
}

std::size_t asciiPrefix(std::string_view text) {
  const auto* end = std::find_if(text.data(), text.data() + text.size(),
                                 [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
  return static_cast<std::size_t>(end - text.data());
}

/// The length of the UTF-8 sequence that starts with `lead`; 0 when none does.
std::size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead <= 0xdf) return 2;
  if (lead >= 0xe0 && lead <= 0xef) return 3;
  return lead >= 0xf0 && lead <= 0xf4 ? 4 : 0;
}

}  // namespace

std::optional<CodePoint> firstCodePoint(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = sequenceLength(lead);
  if (length == 1) return CodePoint{lead, 1};
  if (length == 0 || length > text.size()) return std::nullopt;
  char32_t value = lead & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return std::nullopt;
    value = value << 6 | (next & 0x3f);
  }
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < kSmallest[length] || value > 0x10ffff || isSurrogate(value)) return std::nullopt;
  return CodePoint{value, length};
}

namespace {

/// The length of what is well-formed at the beginning of `text`.
std::size_t validPrefix(std::string_view text) {
  std::size_t end = asciiPrefix(text);
  while (const auto next = firstCodePoint(text.substr(end))) {
    end += next->length;
    end += asciiPrefix(text.substr(end));
  }
  return end;
}

}  // namespace

bool isUTF8(std::string_view text) { return validPrefix(text) == text.size(); }

std::optional<std::string> stringFromUTF8(Bytes bytes) {
  const std::string_view text = textOf(bytes);
  if (!isUTF8(text)) return std::nullopt;
  return std::string(text);
}

std::string lossyUTF8(Bytes bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (std::string_view text = textOf(bytes); !text.empty();) {
    const std::size_t valid = validPrefix(text);
    out += text.substr(0, valid);
    text.remove_prefix(valid);
    if (text.empty()) break;
    appendUTF8(out, kReplacement);
    text.remove_prefix(1);
  }
  return out;
}

std::string escapingControlCharacters(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const auto next = firstCodePoint(text);
    const std::size_t length = next ? next->length : 1;
    if (!next) {
      out += "\\x" + lowercaseHex(bytesOf(text.substr(0, 1)));
    } else if (isControl(next->value)) {
      appendEscape(out, next->value);
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return out;
}

void appendUTF8(std::string& out, char32_t codePoint) {
  if (isSurrogate(codePoint) || codePoint > 0x10ffff) codePoint = kReplacement;
  constexpr char32_t kLead[] = {0, 0xc0, 0xe0, 0xf0};
  const int trailing = (codePoint >= 0x80) + (codePoint >= 0x800) + (codePoint >= 0x10000);
  out += static_cast<char>(kLead[trailing] | codePoint >> 6 * trailing);
  for (int left = trailing - 1; left >= 0; --left) {
    out += static_cast<char>(0x80 | (codePoint >> 6 * left & 0x3f));
  }
}

std::string utf8FromUTF16(std::u16string_view units) {
  std::string out;
  out.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    const char32_t unit = units[i];
    const bool isPair = unit >= 0xd800 && unit <= 0xdbff && i + 1 < units.size() &&
                        units[i + 1] >= 0xdc00 && units[i + 1] <= 0xdfff;
    appendUTF8(out, isPair ? 0x10000 + ((unit - 0xd800) << 10) + (units[i + 1] - 0xdc00U) : unit);
    if (isPair) ++i;
  }
  return out;
}

std::string_view trimmed(std::string_view text) {
  for (auto next = firstCodePoint(text); next && isSpaceOrNewline(next->value);
       next = firstCodePoint(text)) {
    text.remove_prefix(next->length);
  }
  while (!text.empty()) {
    std::size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < 4 && (text[start] & 0xc0) == 0x80) --start;
    const auto last = firstCodePoint(text.substr(start));
    if (!last || last->length != text.size() - start || !isSpaceOrNewline(last->value)) break;
    text.remove_suffix(last->length);
  }
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t end = text.find(separator); end != std::string_view::npos;
       end = text.find(separator)) {
    pieces.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  pieces.emplace_back(text);
  return pieces;
}

std::string joined(const std::vector<std::string>& pieces, std::string_view separator) {
  std::string out;
  for (const std::string& piece : pieces) {
    if (&piece != pieces.data()) out += separator;
    out += piece;
  }
  return out;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string lowercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string lowercaseHex(Bytes bytes) { return hex(bytes, "0123456789abcdef"); }
std::string uppercaseHex(Bytes bytes) { return hex(bytes, "0123456789ABCDEF"); }

bool boolValue(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() && std::string_view("YyTt123456789").find(text[0]) != std::string_view::npos;
}

}  // namespace foundation

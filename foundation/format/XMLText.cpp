#include "foundation/format/private/XMLText.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "foundation/base/Text.h"

namespace foundation {

namespace {

/// Appends the character that a reference ("lt", "#65", "#x41") stands for; false for none.
bool appendReferenced(std::string& out, std::string_view reference) {
  constexpr std::pair<std::string_view, char> kNames[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"apos", '\''}, {"quot", '"'}};
  for (const auto& [name, character] : kNames) {
    if (reference != name) continue;
    out += character;
    return true;
  }
  if (!reference.starts_with('#')) return false;
  reference.remove_prefix(1);
  const bool isHexadecimal = reference.starts_with('x') || reference.starts_with('X');
  if (isHexadecimal) reference.remove_prefix(1);
  std::uint32_t number = 0;
  const char* const end = reference.data() + reference.size();
  const auto [stop, problem] =
      std::from_chars(reference.data(), end, number, isHexadecimal ? 16 : 10);
  const bool isSurrogate = number >= 0xd800 && number <= 0xdfff;
  if (problem != std::errc() || stop != end || number == 0 || number > 0x10ffff || isSurrogate) {
    return false;
  }
  appendUTF8(out, number);
  return true;
}

}  // namespace

std::optional<std::string> withoutXMLReferences(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (;;) {
    const std::size_t start = text.find('&');
    out += text.substr(0, start);
    if (start == std::string_view::npos) return out;
    text.remove_prefix(start + 1);
    const std::size_t end = text.find(';');
    if (end == std::string_view::npos || !appendReferenced(out, text.substr(0, end))) {
      return std::nullopt;
    }
    text.remove_prefix(end + 1);
  }
}

void appendXMLLiteral(std::string& out, std::string_view text) {
  out += kXMLLiteralStart;
  for (std::size_t end = text.find(kXMLLiteralEnd); end != std::string_view::npos;
       end = text.find(kXMLLiteralEnd)) {
    out.append(text.substr(0, end + 2)).append(kXMLLiteralEnd).append(kXMLLiteralStart);
    text.remove_prefix(end + 2);
  }
  out.append(text).append(kXMLLiteralEnd);
}

}  // namespace foundation

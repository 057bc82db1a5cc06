#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The two ways in which XML's text holds characters that would be markup (XML 1.0, 2.7 and 4.1).
namespace foundation {

inline constexpr std::string_view kXMLLiteralStart = "<![CDATA[";
inline constexpr std::string_view kXMLLiteralEnd = "]]>";

/// `text` with the characters that its references stand for; absent when an "&" begins none.
std::optional<std::string> withoutXMLReferences(std::string_view text);

/// Appends plain text as literal text.
void appendXMLLiteral(std::string& out, std::string_view text);

}  // namespace foundation

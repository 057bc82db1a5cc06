#pragma once

#include <string>
#include <string_view>

/// Unique names and text digests.
class QVTStrings {
 public:
  QVTStrings() = delete;

  /// A new text on every call.
  static std::string uniqueString();
  /// A new path in the user's temporary folder, with the extension "zip". Nothing is created.
  static std::string uniqueZipFilePath();
  /// A new text, a slash and "gz": a path component, not an extension.
  static std::string uniqueGZipFileName();
  /// MD5 (RFC 1321) of the text up to its first NUL, as 32 lower-case hexadecimal digits.
  static std::string MD5HashForString(std::string_view text);
};

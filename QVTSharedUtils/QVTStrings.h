#pragma once

#include <string>
#include <string_view>

/// Unique names, and a digest. Thread-safe.
class QVTStrings {
 public:
  QVTStrings() = delete;

  static std::string uniqueString();
  /// A new path in the user's temporary folder, with the extension "zip". Nothing is created.
  /// Throws `foundation::Exception` when there is no such folder.
  static std::string uniqueZipFilePath();
  /// A unique string, a slash and "gz": a path component, not an extension.
  static std::string uniqueGZipFileName();
  /// MD5 (RFC 1321) of the text up to its first NUL, in lower-case hexadecimal.
  static std::string MD5HashForString(std::string_view text);
};

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// A URL (RFC 3986) that keeps its text: no slash is added and no letter changes its case.
///
/// A space, a non-ASCII character, a double quote, any of <>{}|\^ and the backquote, or a broken
/// percent escape gives no URL at all.
class URL {
 public:
  static std::optional<URL> withString(std::string_view text);
  /// RFC 3986 resolution against `base`, unless `text` has a scheme. The result is absolute and
  /// remembers `text` only in `relativePath`.
  static std::optional<URL> withStringRelativeToURL(std::string_view text, const URL& base);
  /// Bytes that are not allowed in a URL are percent-escaped. A relative path is below the current
  /// directory.
  static URL fileURLWithPath(std::string_view path);

  [[nodiscard]] const std::string& absoluteString() const { return text_; }
  /// The path with percent escapes decoded and a trailing slash removed (except from "/"). Empty
  /// when there is none.
  [[nodiscard]] std::string path() const;
  /// For a URL made relative to a base, the path of the text it was made from; else `path()`.
  [[nodiscard]] std::string relativePath() const;
  /// Lower-case; empty when the URL has none.
  [[nodiscard]] std::string scheme() const;
  [[nodiscard]] std::string host() const;
  /// The port in the text, else the default of http or https, else 0.
  [[nodiscard]] int port() const;
  [[nodiscard]] bool isFileURL() const;
  /// Same scheme, host and port.
  [[nodiscard]] bool hasSameOriginAs(const URL& other) const;

  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  explicit URL(std::string text) : text_(std::move(text)) {}
  std::string text_;
  std::optional<std::string> relativeText_;
};

inline const std::string& description(const URL& url) { return url.absoluteString(); }

/// The platform's standard escaping for URLs: "%", space, non-ASCII bytes, `"`, `#`, `[`, `]`, `\`,
/// `^`, backquote, `{`, `|`, `}`, `<`, `>` and control characters. Hex digits are upper-case.
std::string percentEscaped(std::string_view text);

/// As above, except that "%" is kept and every character of `alsoEscaped` is escaped.
std::string percentEscapedKeepingPercent(std::string_view text, std::string_view alsoEscaped);

/// `text` as a single component of a URL path: delimiters and "%" are escaped, too.
std::string percentEscapedPathComponent(std::string_view text);

/// False for a path component that a server might resolve elsewhere even when it is escaped, since
/// servers differ in when they decode: ".", "..", and text with "/", "?", "#", "\", "%", white
/// space or a control character, or that is not UTF-8.
bool isPlainPathComponent(std::string_view text);

}  // namespace foundation

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
  /// Standard relative resolution against `base`; a text that has a scheme stands for itself. The
  /// result is absolute and remembers `text` only in `relativePath`.
  static std::optional<URL> withStringRelativeToURL(std::string_view text, const URL& base);
  /// A file URL; every path has one (bytes that a URL cannot hold are percent-escaped). A relative
  /// path is one below the current folder.
  static URL fileURLWithPath(std::string_view path);

  [[nodiscard]] const std::string& absoluteString() const { return text_; }
  /// The path with its percent escapes decoded and a trailing slash removed (but for "/"); for a
  /// file URL, the file-system path. Empty when there is none.
  [[nodiscard]] std::string path() const;
  /// For a URL made relative to a base, the path of the text it was made from; else `path()`.
  [[nodiscard]] std::string relativePath() const;
  /// Lower-case for comparisons; empty when the text has none.
  [[nodiscard]] std::string scheme() const;
  [[nodiscard]] std::string host() const;
  /// The port in the text or the scheme's default; 0 when neither is known.
  [[nodiscard]] int port() const;
  [[nodiscard]] bool isFileURL() const;
  /// Same scheme, host and port: the only place to which credentials may follow a redirect.
  [[nodiscard]] bool hasSameOriginAs(const URL& other) const;

  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  explicit URL(std::string text) : text_(std::move(text)) {}
  std::string text_;
  std::optional<std::string> relativeText_;
};

/// "%@" of a URL is its text.
inline const std::string& description(const URL& url) { return url.absoluteString(); }

/// The platform's standard escaping of a string for use in a URL: UTF-8; a literal "%" becomes
/// "%25"; space, non-ASCII, `"`, `#`, `[`, `]`, `\`, `^`, backquote, `{`, `|`, `}`, `<`, `>` and
/// control characters are escaped; all else is kept. Hex digits are upper-case.
std::string percentEscaped(std::string_view text);

/// Escapes every character that a URL cannot hold, except "%", and every character of
/// `alsoEscaped`.
std::string percentEscapedKeepingPercent(std::string_view text, std::string_view alsoEscaped);

/// `text` as one component of a URL's path: what a URL cannot hold and what would end the component
/// or take it apart is escaped, "%" included.
std::string percentEscapedPathComponent(std::string_view text);

/// False for a text that could reach another place than its own when it is a component of a path,
/// since servers differ in when they decode: with "/", "?", "#", "\", "%", white space or a control
/// character, and for "." and "..". Other characters only have to be escaped.
bool isPlainPathComponent(std::string_view text);

/// Decodes percent escapes; absent when one is broken.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace foundation

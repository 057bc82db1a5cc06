#include "foundation/base/URL.h"

#include <charconv>
#include <filesystem>
#include <system_error>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"

namespace foundation {

namespace {

/// The five parts of a URL or a relative reference (RFC 3986, section 3), as views of its text. An
/// empty part differs from an absent one.
struct Parts {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

bool isEscape(std::string_view text) {
  return text.size() >= 3 && hexDigit(text[1]) >= 0 && hexDigit(text[2]) >= 0;
}

bool isScheme(std::string_view text) {
  if (text.empty() || !isLetter(text[0])) return false;
  for (const char c : text) {
    if (!isLetter(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

/// Truncates `text` at the first `separator` and returns the rest; absent when there is none.
std::optional<std::string_view> cutAt(std::string_view& text, char separator) {
  const std::size_t place = text.find(separator);
  if (place == std::string_view::npos) return std::nullopt;
  const std::string_view rest = text.substr(place + 1);
  text = text.substr(0, place);
  return rest;
}

Parts partsOf(std::string_view text) {
  Parts parts;
  parts.fragment = cutAt(text, '#');
  parts.query = cutAt(text, '?');
  const std::size_t colon = text.find_first_of(":/");
  if (colon != std::string_view::npos && text[colon] == ':' && isScheme(text.substr(0, colon))) {
    parts.scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (text.starts_with("//")) {
    const std::size_t end = std::min(text.find('/', 2), text.size());
    parts.authority = text.substr(2, end - 2);
    text.remove_prefix(end);
  }
  parts.path = text;
  return parts;
}

std::string textOfParts(const Parts& parts, std::string_view path) {
  std::string text;
  if (parts.scheme) text.append(*parts.scheme).append(":");
  if (parts.authority) text.append("//").append(*parts.authority);
  text += path;
  if (parts.query) text.append("?").append(*parts.query);
  if (parts.fragment) text.append("#").append(*parts.fragment);
  return text;
}

/// RFC 3986, section 5.2.4, on whole segments.
std::string withoutDotSegments(std::string_view path) {
  std::vector<std::string> kept;
  const std::vector<std::string> segments = split(path, '/');
  for (std::size_t i = 0; i < segments.size(); ++i) {
    const bool isLast = i + 1 == segments.size();
    const bool isUp = segments[i] == "..";
    if (!isUp && segments[i] != ".") {
      kept.push_back(segments[i]);
      continue;
    }
    if (isUp && kept.size() > 1) kept.pop_back();
    if (isLast) kept.emplace_back();
  }
  return joined(kept, "/");
}

std::string mergedPath(const Parts& base, std::string_view path) {
  if (base.authority && base.path.empty()) return "/" + std::string(path);
  return std::string(base.path.substr(0, base.path.rfind('/') + 1)) + std::string(path);
}

/// RFC 3986, section 5.2.2.
std::string resolved(const Parts& base, Parts relative) {
  std::string path(relative.path);
  if (!relative.authority) {
    relative.authority = base.authority;
    if (path.empty()) {
      path = base.path;
      if (!relative.query) relative.query = base.query;
    } else {
      path = withoutDotSegments(path.starts_with('/') ? path : mergedPath(base, path));
    }
  } else {
    path = withoutDotSegments(path);
  }
  relative.scheme = base.scheme;
  return textOfParts(relative, path);
}

/// The escapes are well-formed: `URL::withString` checked them.
std::string decodedPath(std::string_view path) {
  if (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  std::string out;
  while (const auto rest = cutAt(path, '%')) {
    out += path;
    out += static_cast<char>(hexDigit((*rest)[0]) * 16 + hexDigit((*rest)[1]));
    path = rest->substr(2);
  }
  return out += path;
}

/// Without user info.
std::string_view hostAndPort(std::string_view authority) {
  return authority.substr(authority.rfind('@') + 1);
}

/// The offset of the port's colon, or the size; colons in the brackets of an IPv6 address are
/// skipped.
std::size_t hostEnd(std::string_view text) {
  const std::size_t bracket = text.starts_with('[') ? text.find(']') : 0;
  return std::min(text.find(':', std::min(bracket, text.size())), text.size());
}

bool isForbidden(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code <= 0x20 || code >= 0x7f ||
         std::string_view("\"<>{}|\\^`").find(c) != std::string_view::npos;
}

std::string escaped(std::string_view text, std::string_view further) {
  std::string out;
  for (const char c : text) {
    if (isForbidden(c) || further.find(c) != std::string_view::npos) {
      out += "%" + uppercaseHex(bytesOf({&c, 1}));
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::optional<URL> URL::withString(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isForbidden(text[i])) return std::nullopt;
    if (text[i] == '%' && !isEscape(text.substr(i))) return std::nullopt;
  }
  return URL(std::string(text));
}

std::optional<URL> URL::withStringRelativeToURL(std::string_view text, const URL& base) {
  auto url = withString(text);
  if (!url) return std::nullopt;
  const Parts relative = partsOf(text);
  if (relative.scheme) return url;
  URL result(resolved(partsOf(base.text_), relative));
  result.relativeText_ = std::string(text);
  return result;
}

URL URL::fileURLWithPath(std::string_view path) {
  std::string whole(path);
  if (!path.empty() && !path.starts_with('/')) {
    std::error_code error;
    const auto current = std::filesystem::current_path(error);
    if (!error) whole = appendingPathComponent(current.string(), path);
  }
  return URL("file://" + escaped(whole, "%#?[];"));
}

std::string URL::path() const { return decodedPath(partsOf(text_).path); }

std::string URL::relativePath() const {
  return relativeText_ ? decodedPath(partsOf(*relativeText_).path) : path();
}

std::string URL::scheme() const { return lowercased(partsOf(text_).scheme.value_or("")); }

std::string URL::host() const {
  const std::string_view place = hostAndPort(partsOf(text_).authority.value_or(""));
  std::string_view host = place.substr(0, hostEnd(place));
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return lowercased(host);
}

int URL::port() const {
  std::string_view place = hostAndPort(partsOf(text_).authority.value_or(""));
  place.remove_prefix(hostEnd(place));
  if (place.size() > 1) {
    std::uint16_t number = 0;
    const auto [end, failure] =
        std::from_chars(place.data() + 1, place.data() + place.size(), number);
    return failure == std::errc() && end == place.data() + place.size() ? number : 0;
  }
  if (scheme() == "https") return 443;
  return scheme() == "http" ? 80 : 0;
}

bool URL::isFileURL() const { return scheme() == "file"; }

bool URL::hasSameOriginAs(const URL& other) const {
  return scheme() == other.scheme() && host() == other.host() && port() == other.port();
}

std::string percentEscaped(std::string_view text) { return escaped(text, "%#[]"); }

std::string percentEscapedKeepingPercent(std::string_view text, std::string_view alsoEscaped) {
  return escaped(text, "#[]" + std::string(alsoEscaped));
}

std::string percentEscapedPathComponent(std::string_view text) { return escaped(text, "%#[]/?;"); }

bool isPlainPathComponent(std::string_view text) {
  if (text == "." || text == "..") return false;
  if (text.find_first_of("/?#\\%") != std::string_view::npos) return false;
  while (!text.empty()) {
    const auto next = firstCodePoint(text);
    if (!next) return false;
    const bool isControl = next->value < 0x20 || (next->value >= 0x7f && next->value < 0xa0);
    if (isControl || trimmed(text.substr(0, next->length)).empty()) return false;
    text.remove_prefix(next->length);
  }
  return true;
}

}  // namespace foundation

#include "toolchain/seal/private/SealScanner.h"

#include "foundation/base/Base64.h"
#include "foundation/base/Text.h"

namespace toolchain {

namespace {

/// The five characters that XML spells out in text are all that this reader knows.
std::optional<std::string> unescaped(std::string_view text) {
  if (text.find_first_of("<>&\r") == std::string_view::npos) return std::string(text);
  std::string result;
  while (!text.empty()) {
    if (text[0] == '<' || text[0] == '>' || text[0] == '\r') return std::nullopt;
    char plain = text[0];
    std::size_t length = 1;
    if (plain == '&') {
      if (text.starts_with("&amp;")) {
        length = 5;
      } else if (text.starts_with("&lt;") || text.starts_with("&gt;")) {
        plain = text[1] == 'l' ? '<' : '>';
        length = 4;
      } else {
        return std::nullopt;
      }
    }
    result += plain;
    text.remove_prefix(length);
  }
  return result;
}

class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  [[nodiscard]] std::string_view rest() const { return rest_; }

  /// The list of this name, if it comes next; otherwise nothing is consumed.
  std::optional<SealedItems> list(std::string_view name) {
    const std::string_view start = rest_;
    if (take("\t<key>") && take(name) && take("</key>\n\t<dict/>\n")) return SealedItems();
    rest_ = start;
    const bool isNext = take("\t<key>") && take(name) && take("</key>\n\t<dict>\n");
    auto found = isNext ? items() : std::nullopt;
    if (!found) rest_ = start;
    return found;
  }

 private:
  /// Entries up to the end of their dictionary; keys must ascend, as the writers leave them.
  std::optional<SealedItems> items() {
    SealedItems items;
    while (!take("\t</dict>\n")) {
      auto path = between("\t\t<key>", "</key>\n");
      if (!path || (!items.empty() && *path <= items.rbegin()->first)) return std::nullopt;
      auto one = item();
      if (!one) return std::nullopt;
      items.emplace_hint(items.end(), std::move(*path), std::move(*one));
    }
    return items;
  }

  bool take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  std::optional<std::string_view> raw(std::string_view before, std::string_view after) {
    if (!take(before)) return std::nullopt;
    const auto end = rest_.find(after);
    if (end == std::string_view::npos) return std::nullopt;
    const auto text = rest_.substr(0, end);
    rest_.remove_prefix(end + after.size());
    return text;
  }

  std::optional<std::string> between(std::string_view before, std::string_view after) {
    const auto text = raw(before, after);
    auto plain = text ? unescaped(*text) : std::nullopt;
    return plain && foundation::isUTF8(*plain) ? std::move(plain) : std::nullopt;
  }

  template <class Digest>
  bool data(std::string_view indent, std::optional<Digest>& out) {
    const std::string tabs(indent);
    const auto text = raw(tabs + "<data>\n" + tabs, "\n" + tabs + "</data>\n");
    Digest digest;
    if (!text || !foundation::decodeBase64(*text, digest)) return false;
    out = digest;
    return true;
  }

  std::optional<SealedItem> item() {
    SealedItem item;
    if (!take("\t\t<dict>\n")) {
      return data("\t\t", item.sha1) ? std::optional(std::move(item)) : std::nullopt;
    }
    // Keys in ascending order; one that is not expected ends the reading.
    if (take("\t\t\t<key>hash</key>\n") && !data("\t\t\t", item.sha1)) return std::nullopt;
    if (take("\t\t\t<key>hash2</key>\n") && !data("\t\t\t", item.sha256)) return std::nullopt;
    item.optional = take("\t\t\t<key>optional</key>\n\t\t\t<true/>\n");
    if (take("\t\t\t<key>symlink</key>\n")) {
      item.linkTarget = between("\t\t\t<string>", "</string>\n");
      if (!item.linkTarget) return std::nullopt;
    }
    const bool isComplete = item.sha1 || item.sha256 || item.linkTarget;
    return isComplete && take("\t\t</dict>\n") ? std::optional(std::move(item)) : std::nullopt;
  }

  std::string_view rest_;
};

}  // namespace

ScannedSeal scanSeal(std::string_view text) {
  if (!text.starts_with(kSealHeader)) return {{}, {}, std::string(text)};
  ScannedSeal result;
  result.rest = kSealHeader;
  Scanner scanner(text.substr(kSealHeader.size()));
  const auto take = [&](std::string_view name, std::optional<SealedItems>& list) {
    list = scanner.list(name);
    if (list) result.rest.append("\t<key>").append(name).append("</key>\n\t<dict/>\n");
  };
  take("files", result.files);
  take("files2", result.files2);
  result.rest += scanner.rest();
  return result;
}

}  // namespace toolchain

#include "foundation/crypto/DER.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "foundation/base/Text.h"

namespace foundation::DER {

namespace {

constexpr int kMaximumDepth = 64;
constexpr std::uint8_t kConstructed = 0x20;
constexpr std::uint8_t kConstructedOctetString = kOctetString | kConstructed;

std::uint8_t byteAt(Bytes bytes, std::size_t index) {
  return std::to_integer<std::uint8_t>(bytes[index]);
}

/// A tag and a length as they stand; the length is absent when it is indefinite.
struct Header {
  std::uint8_t tag = 0;
  std::optional<std::uint64_t> length;
  std::size_t size = 0;
};

std::optional<Header> headerOf(Bytes bytes) {
  if (bytes.size() < 2 || (byteAt(bytes, 0) & 0x1f) == 0x1f) return std::nullopt;
  Header header{byteAt(bytes, 0), byteAt(bytes, 1), 2};
  if (*header.length < 0x80) return header;
  const std::size_t count = *header.length & 0x7f;
  header.length.reset();
  if (count == 0) return header;
  if (count > sizeof(std::uint64_t) || bytes.size() - 2 < count) return std::nullopt;
  std::uint64_t length = 0;
  for (std::size_t i = 0; i < count; ++i) length = length << 8 | byteAt(bytes, 2 + i);
  header.length = length;
  header.size += count;
  return header;
}

/// Copies elements while it makes their lengths definite.
class Transcoder {
 public:
  explicit Transcoder(Bytes all) : all_(all) {}

  /// Appends the element at the cursor; false when it is malformed or too deep.
  bool element(std::string& out, int depth) {
    const std::size_t start = cursor_;
    const auto header = headerOf(all_.subspan(cursor_));
    if (!header || depth > kMaximumDepth) return false;
    const Bytes behind = all_.subspan(cursor_ + header->size);
    if (header->length && *header->length > behind.size()) return false;
    cursor_ += header->size;
    if (!(header->tag & kConstructed)) return primitive(out, start, *header);

    std::string content;
    if (!children(content, *header, depth)) return false;
    append(out, start, *header, content);
    return true;
  }

  [[nodiscard]] std::size_t cursor() const { return cursor_; }

 private:
  bool primitive(std::string& out, std::size_t start, const Header& header) {
    if (!header.length) return false;
    cursor_ += static_cast<std::size_t>(*header.length);
    out += textOf(all_.subspan(start, cursor_ - start));
    return true;
  }

  bool children(std::string& content, const Header& header, int depth) {
    const std::size_t end =
        header.length ? cursor_ + static_cast<std::size_t>(*header.length) : all_.size();
    while (cursor_ < end) {
      if (!header.length && atEndOfContents()) {
        cursor_ += 2;
        return true;
      }
      if (!element(content, depth + 1) || cursor_ > end) return false;
    }
    return header.length.has_value();
  }

  [[nodiscard]] bool atEndOfContents() const {
    const auto mark = slice(all_, cursor_, 2);
    return mark && byteAt(*mark, 0) == 0 && byteAt(*mark, 1) == 0;
  }

  void append(std::string& out, std::size_t start, const Header& header,
              const std::string& content) {
    const std::string_view before =
        textOf(all_.subspan(start + header.size, cursor_ - start - header.size));
    if (header.tag == kConstructedOctetString) {
      out += DER::element(kOctetString, joinedPieces(content));
    } else if (header.length && before == content) {
      out += textOf(all_.subspan(start, cursor_ - start));
    } else {
      out += DER::element(header.tag, content);
    }
  }

  static std::string joinedPieces(const std::string& content) {
    std::string whole;
    Reader reader(bytesOf(content));
    while (const auto piece = reader.next(kOctetString)) whole += textOf(piece->content);
    return whole;
  }

  Bytes all_;
  std::size_t cursor_ = 0;
};

void appendBase128(std::string& out, std::uint64_t number) {
  std::string digits;
  do {
    const unsigned more = digits.empty() ? 0 : 0x80;
    digits.insert(digits.begin(), static_cast<char>((number & 0x7f) | more));
    number >>= 7;
  } while (number != 0);
  out += digits;
}

}  // namespace

std::string element(std::uint8_t tag, std::string_view content) {
  std::string out(1, static_cast<char>(tag));
  if (content.size() < 0x80) {
    out += static_cast<char>(content.size());
  } else {
    std::string length;
    for (std::size_t rest = content.size(); rest != 0; rest >>= 8) {
      length.insert(length.begin(), static_cast<char>(rest & 0xff));
    }
    out += static_cast<char>(0x80 | length.size());
    out += length;
  }
  out += content;
  return out;
}

std::string setOf(std::vector<std::string> elements) {
  std::sort(elements.begin(), elements.end());  // std::string compares bytes as unsigned
  return element(kSet, joined(elements, ""));
}

std::string objectIdentifier(std::string_view dotted) {
  std::vector<std::uint64_t> numbers;
  for (const auto& piece : split(dotted, '.')) {
    std::uint64_t number = 0;
    const auto [end, status] = std::from_chars(piece.data(), piece.data() + piece.size(), number);
    if (status != std::errc() || end != piece.data() + piece.size()) return {};
    numbers.push_back(number);
  }
  if (numbers.size() < 2 || numbers[0] > 2 || numbers[1] >= (numbers[0] < 2 ? 40U : 0x10000000U)) {
    return {};
  }
  std::string content;
  appendBase128(content, numbers[0] * 40 + numbers[1]);
  for (std::size_t i = 2; i < numbers.size(); ++i) appendBase128(content, numbers[i]);
  return element(kObjectIdentifier, content);
}

std::optional<Element> Reader::next() {
  const auto header = headerOf(rest_);
  if (!header || !header->length) return std::nullopt;
  const auto content = slice(rest_, header->size, *header->length);
  if (!content) return std::nullopt;
  const std::size_t size = header->size + content->size();
  const Element found{header->tag, *content, rest_.first(size)};
  rest_ = rest_.subspan(size);
  return found;
}

std::optional<Element> Reader::next(std::uint8_t tag) {
  if (rest_.empty() || byteAt(rest_, 0) != tag) return std::nullopt;
  return next();
}

std::optional<Element> single(Bytes bytes, std::uint8_t tag) {
  Reader reader(bytes);
  const auto found = reader.next(tag);
  return reader.atEnd() ? found : std::nullopt;
}

std::string dotted(Bytes identifier) {
  std::vector<std::string> numbers;
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < identifier.size(); ++i) {
    if (number > std::numeric_limits<std::uint64_t>::max() >> 7) return {};
    number = number << 7 | (byteAt(identifier, i) & 0x7f);
    if (byteAt(identifier, i) & 0x80) {
      if (i + 1 == identifier.size()) return {};
      continue;
    }
    if (numbers.empty()) {
      const std::uint64_t first = std::min<std::uint64_t>(number / 40, 2);
      numbers.push_back(std::to_string(first));
      number -= first * 40;
    }
    numbers.push_back(std::to_string(number));
    number = 0;
  }
  return joined(numbers, ".");
}

Result<Data> definiteForm(Bytes bytes) {
  Transcoder transcoder(bytes);
  std::string out;
  const bool read = transcoder.element(out, 0);
  const Bytes rest = bytes.subspan(std::min(transcoder.cursor(), bytes.size()));
  const bool clean =
      std::all_of(rest.begin(), rest.end(), [](std::byte byte) { return byte == std::byte{0}; });
  if (!read || !clean) {
    return makeError(kCocoaErrorDomain, -1,
                     "malformed encoding at byte " + std::to_string(transcoder.cursor()) + " of " +
                         std::to_string(bytes.size()));
  }
  return Data(std::move(out));
}

}  // namespace foundation::DER

#include "foundation/base/UnicodeText.h"

#include <algorithm>
#include <array>

#include "foundation/base/Text.h"

namespace foundation {

namespace {

struct Encoding {
  std::size_t unitSize = 1;
  bool isBigEndian = false;
  std::size_t markSize = 0;
};

constexpr std::array<std::pair<std::string_view, Encoding>, 5> kMarks{{
    {std::string_view("\xff\xfe\0\0", 4), {4, false, 4}},
    {std::string_view("\0\0\xfe\xff", 4), {4, true, 4}},
    {std::string_view("\xff\xfe", 2), {2, false, 2}},
    {std::string_view("\xfe\xff", 2), {2, true, 2}},
    {std::string_view("\xef\xbb\xbf", 3), {1, false, 3}},
}};

/// All formats read this way begin with an ASCII character, so its zero bytes give the unit size.
Encoding encodingOf(std::string_view text) {
  for (const auto& [mark, encoding] : kMarks) {
    if (text.starts_with(mark)) return encoding;
  }
  const auto isZero = [text](std::size_t i) { return i < text.size() && text[i] == '\0'; };
  if (text.size() >= 4 && isZero(0) && isZero(1) && isZero(2)) return {4, true, 0};
  if (text.size() >= 4 && isZero(1) && isZero(2) && isZero(3)) return {4, false, 0};
  if (text.size() >= 2 && isZero(0) && !isZero(1)) return {2, true, 0};
  if (text.size() >= 2 && isZero(1) && !isZero(0)) return {2, false, 0};
  return {};
}

char32_t unitAt(std::string_view text, std::size_t index, const Encoding& encoding) {
  char32_t unit = 0;
  for (std::size_t i = 0; i < encoding.unitSize; ++i) {
    const std::size_t place = encoding.isBigEndian ? i : encoding.unitSize - 1 - i;
    unit = unit << 8 | static_cast<unsigned char>(text[index * encoding.unitSize + place]);
  }
  return unit;
}

bool isLead(char32_t unit) { return unit >= 0xd800 && unit <= 0xdbff; }
bool isTrail(char32_t unit) { return unit >= 0xdc00 && unit <= 0xdfff; }

/// UTF-16 or UTF-32 as UTF-8; surrogates must pair up.
std::optional<std::string> recoded(std::string_view text, const Encoding& encoding) {
  if (text.size() % encoding.unitSize != 0) return std::nullopt;
  const std::size_t count = text.size() / encoding.unitSize;
  std::string out;
  out.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    char32_t unit = unitAt(text, i, encoding);
    if (encoding.unitSize == 2 && isLead(unit) && i + 1 < count) {
      const char32_t trail = unitAt(text, i + 1, encoding);
      if (!isTrail(trail)) return std::nullopt;
      unit = 0x10000 + ((unit - 0xd800) << 10) + (trail - 0xdc00);
      ++i;
    }
    if (isLead(unit) || isTrail(unit) || unit > 0x10ffff) return std::nullopt;
    appendUTF8(out, unit);
  }
  return out;
}

}  // namespace

std::optional<std::string_view> unicodeText(Bytes bytes, std::string& storage) {
  std::string_view text = textOf(bytes);
  const Encoding encoding = encodingOf(text);
  text.remove_prefix(encoding.markSize);
  if (encoding.unitSize == 1) return text;
  auto result = recoded(text, encoding);
  if (!result) return std::nullopt;
  storage = std::move(*result);
  return storage;
}

}  // namespace foundation

#include <algorithm>
#include <array>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/format/private/PropertyListReaders.h"

namespace foundation::PropertyList {

namespace {

/// The upper half of the NeXTSTEP character set, from
/// https://www.unicode.org/Public/MAPPINGS/VENDORS/NEXT/NEXTSTEP.TXT; the lower half is ASCII.
constexpr std::array<char16_t, 128> kNextStep{
    0x00a0, 0x00c0, 0x00c1, 0x00c2, 0x00c3, 0x00c4, 0x00c5, 0x00c7, 0x00c8, 0x00c9, 0x00ca, 0x00cb,
    0x00cc, 0x00cd, 0x00ce, 0x00cf, 0x00d0, 0x00d1, 0x00d2, 0x00d3, 0x00d4, 0x00d5, 0x00d6, 0x00d9,
    0x00da, 0x00db, 0x00dc, 0x00dd, 0x00de, 0x00b5, 0x00d7, 0x00f7, 0x00a9, 0x00a1, 0x00a2, 0x00a3,
    0x2044, 0x00a5, 0x0192, 0x00a7, 0x00a4, 0x2019, 0x201c, 0x00ab, 0x2039, 0x203a, 0xfb01, 0xfb02,
    0x00ae, 0x2013, 0x2020, 0x2021, 0x00b7, 0x00a6, 0x00b6, 0x2022, 0x201a, 0x201e, 0x201d, 0x00bb,
    0x2026, 0x2030, 0x00ac, 0x00bf, 0x00b9, 0x02cb, 0x00b4, 0x02c6, 0x02dc, 0x00af, 0x02d8, 0x02d9,
    0x00a8, 0x00b2, 0x02da, 0x00b8, 0x00b3, 0x02dd, 0x02db, 0x02c7, 0x2014, 0x00b1, 0x00bc, 0x00bd,
    0x00be, 0x00e0, 0x00e1, 0x00e2, 0x00e3, 0x00e4, 0x00e5, 0x00e7, 0x00e8, 0x00e9, 0x00ea, 0x00eb,
    0x00ec, 0x00c6, 0x00ed, 0x00aa, 0x00ee, 0x00ef, 0x00f0, 0x00f1, 0x0141, 0x00d8, 0x0152, 0x00ba,
    0x00f2, 0x00f3, 0x00f4, 0x00f5, 0x00f6, 0x00e6, 0x00f9, 0x00fa, 0x00fb, 0x0131, 0x00fc, 0x00fd,
    0x0142, 0x00f8, 0x0153, 0x00df, 0x00fe, 0x00ff, 0xfffd, 0xfffd};

constexpr std::array<bool, 256> kIsUnquoted = [] {
  std::array<bool, 256> result{};
  for (const char c : std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789_$/:.-+")) {
    result[static_cast<unsigned char>(c)] = true;
  }
  return result;
}();

bool isUnquoted(char c) { return kIsUnquoted[static_cast<unsigned char>(c)]; }
bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  Result<Value> parse();

 private:
  bool skipBlanks();
  bool skipComment();
  bool value(Value& out);
  bool container(Value& out);
  bool text(std::string& out);
  bool quoted(std::string& out);
  bool escape(std::string& out);
  void octalEscape(std::string& out);
  bool unicodeEscape(std::string& out);
  std::optional<char32_t> unicodeUnit();
  bool unquoted(std::string& out);
  bool data(Value& out);
  bool array(Value& out);
  bool dictionary(Value& out);
  bool pairs(Dictionary& out);
  bool pair(Dictionary& out);

  [[nodiscard]] bool atEnd() const { return position_ == text_.size(); }
  [[nodiscard]] bool isAt(char c) const { return !atEnd() && text_[position_] == c; }
  /// Skips blanks, then `c`; false when something else, or an error, is in its place.
  bool accept(char c) {
    if (!skipBlanks() || !isAt(c)) return false;
    ++position_;
    return true;
  }
  bool expect(char c, std::string_view where);
  bool fail(std::string_view complaint);
  bool failAt(std::size_t place, std::string_view complaint);
  [[nodiscard]] std::string found() const;

  std::string_view text_;
  std::size_t position_ = 0;
  int depth_ = 0;
  std::optional<Error> error_;
};

bool Parser::failAt(std::size_t place, std::string_view complaint) {
  if (error_) return false;
  error_ = readErrorAt("property list in the old text form", text_, place, complaint);
  return false;
}

bool Parser::fail(std::string_view complaint) { return failAt(position_, complaint); }

std::string Parser::found() const {
  if (atEnd()) return "the end";
  const auto code = static_cast<unsigned char>(text_[position_]);
  if (code > 0x20 && code < 0x7f) return "'" + std::string(1, text_[position_]) + "'";
  return format("the byte 0x%02x", unsigned{code});
}

bool Parser::expect(char c, std::string_view where) {
  if (accept(c)) return true;
  return fail(format("%@ stands where %@ needs '%@'", found(), where, std::string(1, c)));
}

/// False only for a comment that does not end.
bool Parser::skipBlanks() {
  while (!atEnd()) {
    const char c = text_[position_];
    if (c == ' ' || (c >= '\t' && c <= '\r')) {
      ++position_;
    } else if (text_.substr(position_).starts_with("\u2028") ||
               text_.substr(position_).starts_with("\u2029")) {
      position_ += 3;
    } else if (c != '/' || position_ + 1 == text_.size() ||
               (text_[position_ + 1] != '/' && text_[position_ + 1] != '*')) {
      return true;
    } else if (!skipComment()) {
      return false;
    }
  }
  return true;
}

bool Parser::skipComment() {
  if (text_[position_ + 1] == '/') {
    position_ = std::min(text_.find_first_of("\n\r", position_), text_.size());
    return true;
  }
  const std::size_t end = text_.find("*/", position_ + 2);
  if (end == std::string_view::npos) return fail("the comment that begins here does not end");
  position_ = end + 2;
  return true;
}

bool Parser::value(Value& out) {
  if (!skipBlanks()) return false;
  if (atEnd()) return fail("the end stands where a value is needed");
  if (isAt('<')) return data(out);
  if (isAt('(') || isAt('{')) return container(out);
  std::string result;
  if (!text(result)) return false;
  out = Value(std::move(result));
  return true;
}

bool Parser::container(Value& out) {
  if (depth_ == kMaximumDepth) {
    return fail(format("nested deeper than %d levels", kMaximumDepth));
  }
  ++depth_;
  const bool isRead = isAt('(') ? array(out) : dictionary(out);
  --depth_;
  return isRead;
}

bool Parser::text(std::string& out) {
  return isAt('"') || isAt('\'') ? quoted(out) : unquoted(out);
}

bool Parser::unquoted(std::string& out) {
  const std::size_t start = position_;
  while (!atEnd() && isUnquoted(text_[position_])) ++position_;
  if (start == position_) return fail(found() + " begins no value");
  out.assign(text_, start, position_ - start);
  return true;
}

bool Parser::quoted(std::string& out) {
  const std::size_t start = position_;
  const char mark = text_[position_++];
  const char stops[] = {mark, '\\'};
  while (true) {
    const std::size_t stop = text_.find_first_of(std::string_view(stops, 2), position_);
    if (stop == std::string_view::npos) {
      return failAt(start, "the quoted text that begins here does not end");
    }
    out.append(text_, position_, stop - position_);
    position_ = stop + 1;
    if (text_[stop] == mark) return true;
    if (!escape(out)) return false;
  }
}

/// Stands behind a backslash. One before any other character is dropped.
bool Parser::escape(std::string& out) {
  if (atEnd()) return fail("the text ends in a backslash");
  const char c = text_[position_];
  if (isOctalDigit(c)) {
    octalEscape(out);
    return true;
  }
  if (c == 'U') return unicodeEscape(out);
  constexpr std::string_view kLetters = "abfnrtv";
  constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v";
  const std::size_t letter = kLetters.find(c);
  out += letter == std::string_view::npos ? c : kMeanings[letter];
  ++position_;
  return true;
}

void Parser::octalEscape(std::string& out) {
  unsigned code = 0;
  for (int digits = 0; digits < 3 && !atEnd() && isOctalDigit(text_[position_]); ++digits) {
    code = code * 8 + static_cast<unsigned>(text_[position_++] - '0');
  }
  code &= 0xff;
  appendUTF8(out, code < 0x80 ? code : kNextStep[code - 0x80]);
}

/// The one to four digits of the unit whose "U" is here.
std::optional<char32_t> Parser::unicodeUnit() {
  ++position_;
  char32_t unit = 0;
  int digits = 0;
  for (; digits < 4 && !atEnd() && hexDigit(text_[position_]) >= 0; ++digits) {
    unit = unit * 16 + static_cast<char32_t>(hexDigit(text_[position_++]));
  }
  return digits == 0 ? std::nullopt : std::optional(unit);
}

/// Two escapes that are a surrogate pair make one character.
bool Parser::unicodeEscape(std::string& out) {
  const auto unit = unicodeUnit();
  if (!unit) return fail("\\U is not followed by a hexadecimal digit");
  if (*unit < 0xd800 || *unit > 0xdbff || !text_.substr(position_).starts_with("\\U")) {
    appendUTF8(out, *unit);
    return true;
  }
  const std::size_t second = position_++;
  const auto trail = unicodeUnit();
  if (trail && *trail >= 0xdc00 && *trail <= 0xdfff) {
    appendUTF8(out, 0x10000 + ((*unit - 0xd800) << 10) + (*trail - 0xdc00));
  } else {
    appendUTF8(out, *unit);
    position_ = second;
  }
  return true;
}

bool Parser::data(Value& out) {
  ++position_;
  std::string bytes;
  for (int half = -1;;) {
    if (!skipBlanks()) return false;
    if (isAt('>')) {
      if (half >= 0) return fail("data with an odd number of digits");
      break;
    }
    const int digit = atEnd() ? -1 : hexDigit(text_[position_]);
    if (digit < 0) return fail(found() + " is not a hexadecimal digit of data");
    ++position_;
    if (half >= 0) bytes += static_cast<char>(half * 16 + digit);
    half = half >= 0 ? -1 : digit;
  }
  ++position_;
  out = Value(Data(std::move(bytes)));
  return true;
}

bool Parser::array(Value& out) {
  ++position_;
  out = Value(Array());
  while (!accept(')')) {
    Value element;
    if (error_ || !value(element)) return false;
    out.array()->push_back(std::move(element));
    if (!accept(',')) return expect(')', "an array");
  }
  return true;
}

bool Parser::dictionary(Value& out) {
  ++position_;
  out = Value(Dictionary());
  return pairs(*out.dictionary()) && expect('}', "a dictionary");
}

/// Reads up to a closing brace or the end of the text.
bool Parser::pairs(Dictionary& out) {
  while (skipBlanks() && !atEnd() && !isAt('}')) {
    if (!pair(out)) return false;
  }
  return !error_;
}

/// `key = value;`, or `key;` for a value that is the key itself.
bool Parser::pair(Dictionary& out) {
  std::string key;
  if (!text(key)) return false;
  Value entry;
  if (accept(';')) {
    entry = Value(key);
  } else if (!expect('=', "a dictionary") || !value(entry) || !expect(';', "a dictionary")) {
    return false;
  }
  set(out, std::move(key), std::move(entry));
  return true;
}

Result<Value> Parser::parse() {
  Value top = Dictionary();
  bool isRead = skipBlanks();
  if (isRead && !atEnd()) {
    isRead = value(top) && skipBlanks();
    if (isRead && !atEnd() && top.string()) {
      position_ = 0;
      top = Dictionary();
      isRead = pairs(*top.dictionary());
    }
  }
  if (isRead && !atEnd()) fail(found() + " follows the end of the list");
  if (error_) return *error_;
  return top;
}

}  // namespace

Result<Value> parseOldStyle(std::string_view text) { return Parser(text).parse(); }

}  // namespace foundation::PropertyList

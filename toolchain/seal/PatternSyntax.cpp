#include "toolchain/seal/private/PatternSyntax.h"

#include <array>
#include <cctype>
#include <string>
#include <utility>

#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

using foundation::Result;
using Kind = PatternPart::Kind;
using ByteSet = std::bitset<256>;

/// Bounds the parser's recursion, too.
constexpr std::size_t kLongestPattern = 1024;
/// POSIX guarantees this count and no higher one.
constexpr unsigned kMostRepetitions = 255;

constexpr std::array<std::pair<std::string_view, int (*)(int)>, 12> kClasses{
    {{"alnum", std::isalnum},
     {"alpha", std::isalpha},
     {"blank", std::isblank},
     {"cntrl", std::iscntrl},
     {"digit", std::isdigit},
     {"graph", std::isgraph},
     {"lower", std::islower},
     {"print", std::isprint},
     {"punct", std::ispunct},
     {"space", std::isspace},
     {"upper", std::isupper},
     {"xdigit", std::isxdigit}}};

unsigned char byteOf(char c) { return static_cast<unsigned char>(c); }

PatternPart single(char c) {
  PatternPart part(Kind::bytes);
  part.bytes.set(byteOf(c));
  return part;
}

/// A list in brackets, without the opening one.
class BracketReader {
 public:
  explicit BracketReader(std::string_view& text) : text_(text) {}

  Result<PatternPart> read() {
    PatternPart part(Kind::bytes);
    const bool isInverted = text_.starts_with('^');
    if (isInverted) text_.remove_prefix(1);
    do {
      if (const auto added = addElement(part.bytes); !added) return added.error();
    } while (!text_.starts_with(']'));
    text_.remove_prefix(1);
    if (isInverted) part.bytes.flip();
    return part;
  }

 private:
  Result<> addElement(ByteSet& set) {
    if (text_.starts_with("[:")) return addClass(set);
    if (text_.starts_with('-') && !isFirst_ && !text_.starts_with("-]")) {
      return failure("a \"-\" between ranges");
    }
    const bool isEquivalence = text_.starts_with("[=");
    const auto first = endPoint();
    if (!first) return first.error();
    auto last = *first;
    if (!isEquivalence && text_.starts_with('-') && text_.size() > 1 && text_[1] != ']') {
      text_.remove_prefix(1);
      const auto found = text_.starts_with("[=") || text_.starts_with("[:")
                             ? Result<unsigned char>(failure("a range that ends in a class"))
                             : endPoint();
      if (!found) return found.error();
      last = *found;
    }
    if (last < *first) return failure("a range that runs backwards");
    for (unsigned byte = *first; byte <= last; ++byte) set.set(byte);
    isFirst_ = false;
    return {};
  }

  /// A byte, by itself or as "[.x.]" or "[=x=]".
  Result<unsigned char> endPoint() {
    if (text_.empty()) return failure("a \"[\" without its \"]\"");
    if (text_.starts_with("[.") || text_.starts_with("[=")) {
      const auto name = named();
      if (!name) return name.error();
      if (name->size() != 1) return failure("an unknown collating element");
      return byteOf(name->front());
    }
    const char c = text_.front();
    text_.remove_prefix(1);
    return byteOf(c);
  }

  Result<> addClass(ByteSet& set) {
    const auto name = named();
    if (!name) return name.error();
    isFirst_ = false;
    for (const auto& [known, contains] : kClasses) {
      if (*name != known) continue;
      for (unsigned byte = 0; byte < 128; ++byte) {
        if (contains(static_cast<int>(byte)) != 0) set.set(byte);
      }
      return {};
    }
    return failure("an unknown class of characters");
  }

  /// What "[:", "[." or "[=" begins.
  Result<std::string_view> named() {
    const std::array<char, 2> end{text_[1], ']'};
    text_.remove_prefix(2);
    const auto at = text_.find(std::string_view(end.data(), end.size()));
    if (at == text_.npos) return failure("a \"[\" without its \"]\"");
    const auto name = text_.substr(0, at);
    text_.remove_prefix(at + end.size());
    return name;
  }

  std::string_view& text_;
  bool isFirst_ = true;
};

class PatternReader {
 public:
  explicit PatternReader(std::string_view text) : text_(text) {}

  Result<PatternPart> choice() {
    PatternPart part(Kind::choice);
    for (;;) {
      auto branch = sequence();
      if (!branch) return branch.error();
      part.parts.push_back(std::move(*branch));
      if (!take('|')) return part;
    }
  }

 private:
  bool take(char c) {
    if (!text_.starts_with(c)) return false;
    text_.remove_prefix(1);
    return true;
  }

  Result<PatternPart> sequence() {
    PatternPart part(Kind::sequence);
    while (!text_.empty() && text_[0] != '|' && (text_[0] != ')' || depth_ == 0)) {
      auto piece = repeated();
      if (!piece) return piece.error();
      part.parts.push_back(std::move(*piece));
    }
    return part;
  }

  Result<PatternPart> repeated() {
    auto part = atom();
    if (!part || part->kind == Kind::start || part->kind == Kind::end) return part;
    for (;;) {
      PatternPart around(Kind::repetition);
      if (take('*')) {
      } else if (take('+')) {
        around.least = 1;
      } else if (take('?')) {
        around.most = 1;
      } else if (take('{')) {
        if (const auto bounds = interval(around); !bounds) return bounds.error();
      } else {
        return part;
      }
      around.parts.push_back(std::move(*part));
      part = std::move(around);
    }
  }

  Result<PatternPart> atom() {
    const char c = text_.front();
    text_.remove_prefix(1);
    switch (c) {
      case '(':
        return group();
      case '[':
        return BracketReader(text_).read();
      case '.': {
        PatternPart part(Kind::bytes);
        part.bytes.set();
        return part;
      }
      case '^':
        return PatternPart(Kind::start);
      case '$':
        return PatternPart(Kind::end);
      case '*':
      case '+':
      case '?':
      case '{':
        return failure("nothing to repeat");
      case '\\':
        return escaped();
      default:
        return single(c);
    }
  }

  Result<PatternPart> group() {
    ++depth_;
    auto part = choice();
    if (part && !take(')')) return failure("a \"(\" without its \")\"");
    --depth_;
    return part;
  }

  Result<PatternPart> escaped() {
    if (text_.empty()) return failure("a backslash at the end");
    const char c = text_.front();
    if (std::isalnum(byteOf(c)) != 0 || c == '<' || c == '>') {
      return failure("an escape that POSIX leaves open");
    }
    text_.remove_prefix(1);
    return single(c);
  }

  /// "m}", "m,}", "m,n}" or ",n}".
  Result<> interval(PatternPart& part) {
    const auto least = number();
    if (!least) return least.error();
    const bool hasComma = take(',');
    const auto most = hasComma ? number() : least;
    if (!most) return most.error();
    if (!take('}') || (!hasComma && !*least)) return failure("a \"{\" that is not a count");
    part.least = least->value_or(0);
    part.most = *most;
    if (part.most && *part.most < part.least) return failure("a count that runs backwards");
    return {};
  }

  Result<std::optional<unsigned>> number() {
    std::optional<unsigned> value;
    while (!text_.empty() && std::isdigit(byteOf(text_.front())) != 0) {
      value = value.value_or(0) * 10 + static_cast<unsigned>(text_.front() - '0');
      if (*value > kMostRepetitions) return failure("a count above 255");
      text_.remove_prefix(1);
    }
    return value;
  }

  std::string_view text_;
  int depth_ = 0;
};

}  // namespace

Result<PatternPart> parsePattern(std::string_view text) {
  if (text.size() > kLongestPattern) return failure("more than 1024 bytes");
  return PatternReader(text).choice();
}

}  // namespace toolchain

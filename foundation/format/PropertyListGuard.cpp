#include "foundation/format/private/PropertyListGuard.h"

#include <algorithm>
#include <string>
#include <vector>

#include "foundation/base/Format.h"
#include "foundation/format/PropertyList.h"
#include "foundation/format/private/DictionaryFilling.h"
#include "foundation/format/private/XMLText.h"

namespace foundation {

namespace {

using PropertyList::kMaximumDepth;

class XMLScanner {
 public:
  /// What has to be rewritten goes to `rewritten`.
  XMLScanner(std::string_view text, std::string& rewritten) : text_(text), rewritten_(rewritten) {}

  Result<CheckedXML> scan() {
    while (!isDone_) {
      const std::size_t next = text_.find('<', position_);
      if (next == std::string_view::npos) return failed(text_.size(), unfinished());
      if (isInText() && !text(text_.substr(position_, next - position_))) return *error_;
      position_ = next;
      if (!skipMarkup() && !element()) return *error_;
    }
    if (kept_ == 0) return CheckedXML{text_.substr(0, position_), position_, keyCount_};
    keepUpTo(position_);
    return CheckedXML{rewritten_, position_, keyCount_};
  }

 private:
  [[nodiscard]] Error failed(std::size_t place, std::string_view complaint) const {
    const auto line = 1 + std::ranges::count(text_.substr(0, place), '\n');
    return makeError(kCocoaErrorDomain, 3840,
                     format("XML property list, line %ld: %@", line, complaint));
  }

  bool fail(std::string_view complaint) {
    error_ = failed(position_, complaint);
    return false;
  }

  [[nodiscard]] std::string unfinished() const {
    if (open_.empty()) return "there is no element";
    return format("the text ends inside <%@>", open_.back().substr(0, 32));
  }

  [[nodiscard]] bool isInText() const {
    return !open_.empty() && (open_.back() == "string" || open_.back() == "key");
  }

  void keepUpTo(std::size_t position) {
    rewritten_ += text_.substr(kept_, position - kept_);
    kept_ = position;
  }

  /// libplist moves the rest of a text forward for each reference in it, so it gets literal text.
  bool text(std::string_view piece) {
    if (piece.find('&') == std::string_view::npos) {
      if (open_.back() == "key") key_ += piece;
      return true;
    }
    const auto plain = withoutXMLReferences(piece);
    if (!plain) return fail("an \"&\" begins no character");
    keepUpTo(position_);
    appendXMLLiteral(rewritten_, *plain);
    kept_ = position_ + piece.size();
    if (open_.back() == "key") key_ += *plain;
    return true;
  }

  /// Comments, instructions, declarations and literal text: everything in angle brackets that is no
  /// element. One that is cut off reaches to the end of the text.
  bool skipMarkup() {
    const std::string_view rest = text_.substr(position_);
    if (rest.starts_with("<!--")) return skipPast("-->", 4);
    if (rest.starts_with(kXMLLiteralStart)) return literal();
    if (rest.starts_with("<?")) return skipPast("?>", 2);
    if (!rest.starts_with("<!")) return false;
    return rest.substr(0, rest.find('>')).find('[') == std::string_view::npos ? skipPast(">", 2)
                                                                              : skipPast("]>", 2);
  }

  bool skipPast(std::string_view end, std::size_t opening) {
    const std::size_t place = text_.find(end, position_ + opening);
    position_ = place == std::string_view::npos ? text_.size() : place + end.size();
    return true;
  }

  bool literal() {
    const std::size_t start = position_ + kXMLLiteralStart.size();
    skipPast(kXMLLiteralEnd, kXMLLiteralStart.size());
    if (isInText() && open_.back() == "key" && position_ >= start + kXMLLiteralEnd.size()) {
      key_ += text_.substr(start, position_ - kXMLLiteralEnd.size() - start);
    }
    return true;
  }

  bool element() {
    const bool isClosing = text_.substr(position_).starts_with("</");
    const std::size_t start = position_ + (isClosing ? 2 : 1);
    const std::size_t nameEnd = std::min(text_.find_first_of(" \t\r\n/>", start), text_.size());
    const std::string_view name = text_.substr(start, nameEnd - start);
    const std::size_t end = tagEnd(nameEnd);
    if (end == std::string_view::npos) return fail("the tag that begins here does not end");
    const bool isEmpty = !isClosing && text_[end - 1] == '/';
    if (!isEmpty && !(isClosing ? close(name) : open(name))) return false;
    position_ = end + 1;
    isDone_ = open_.empty();
    return true;
  }

  [[nodiscard]] std::size_t tagEnd(std::size_t from) const {
    std::size_t end = text_.find_first_of("\"'>", from);
    while (end != std::string_view::npos && text_[end] != '>') {
      const std::size_t closing = text_.find(text_[end], end + 1);
      if (closing == std::string_view::npos) return closing;
      end = text_.find_first_of("\"'>", closing + 1);
    }
    return end;
  }

  bool open(std::string_view name) {
    // Around the containers there is <plist>, and inside the deepest a plain value.
    if (open_.size() == kMaximumDepth + 2 ||
        ((name == "array" || name == "dict") && open_.size() > kMaximumDepth)) {
      return fail(format("nested deeper than %d levels", kMaximumDepth));
    }
    open_.push_back(name);
    if (name == "dict") keys_.emplace_back();
    if (name == "key") key_.clear();
    return true;
  }

  bool close(std::string_view name) {
    if (open_.empty() || open_.back() != name) {
      return fail(format("</%@> closes nothing that is open here", name.substr(0, 32)));
    }
    open_.pop_back();
    if (name == "key" && !open_.empty() && open_.back() == "dict") {
      // libplist sees nothing behind a zero.
      keys_.back().push_back(key_.substr(0, key_.find('\0')));
    }
    return name != "dict" || closeDictionary();
  }

  bool closeDictionary() {
    const std::vector<std::string> keys = std::move(keys_.back());
    keys_.pop_back();
    keyCount_ += keys.size();
    return filling_.add(keys) || fail(DictionaryFilling::complaint(keys.size()));
  }

  std::string_view text_;
  std::size_t position_ = 0;
  std::string& rewritten_;
  /// How much of the text is in `rewritten_`; 0 while nothing had to be rewritten.
  std::size_t kept_ = 0;
  std::uint64_t keyCount_ = 0;
  DictionaryFilling filling_;
  bool isDone_ = false;
  std::vector<std::string_view> open_;
  /// The key that is being read, or was read last.
  std::string key_;
  /// Of each dictionary that is open.
  std::vector<std::vector<std::string>> keys_;
  std::optional<Error> error_;
};

/// What is known of an object of a binary list. Heights count containers.
struct Visit {
  enum class State : std::uint8_t { unseen, open, done };
  State state = State::unseen;
  std::uint16_t height = 0;
  std::uint64_t room = 0;
};

class BinaryWalker {
 public:
  explicit BinaryWalker(Bytes bytes) : bytes_(bytes) {}

  Result<> walk() {
    if (!readTrailer() || !visit(top_, 0)) return *error_;
    return {};
  }

 private:
  struct Object {
    unsigned type = 0;
    unsigned info = 0;
    std::uint64_t count = 0;
    /// Where its content begins.
    std::uint64_t content = 0;
  };

  bool fail(std::string_view complaint) {
    if (!error_) {
      error_ = makeError(kCocoaErrorDomain, 3840, format("binary property list: %@", complaint));
    }
    return false;
  }

  bool failAt(std::uint64_t index, std::string_view complaint) {
    return fail(format("object %llu of %llu %@", index, count_, complaint));
  }

  /// A big-endian number of 1 to 8 bytes that are known to lie inside.
  [[nodiscard]] std::uint64_t numberAt(std::uint64_t offset, std::uint64_t size) const {
    std::uint64_t number = 0;
    for (std::uint64_t i = 0; i < size; ++i) {
      number = number << 8 | std::to_integer<std::uint64_t>(bytes_[offset + i]);
    }
    return number;
  }

  bool readTrailer() {
    constexpr std::uint64_t kHeader = 8;
    constexpr std::uint64_t kTrailer = 32;
    if (bytes_.size() < kHeader + kTrailer) return fail("shorter than its header and trailer");
    const std::uint64_t trailer = bytes_.size() - kTrailer;
    offsetSize_ = numberAt(trailer + 6, 1);
    referenceSize_ = numberAt(trailer + 7, 1);
    count_ = numberAt(trailer + 8, 8);
    top_ = numberAt(trailer + 16, 8);
    table_ = numberAt(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      return fail(format("offsets of %llu and references of %llu bytes; 1 to 8 are possible",
                         offsetSize_, referenceSize_));
    }
    if (table_ < kHeader || table_ > trailer || count_ > (trailer - table_) / offsetSize_) {
      return fail(format("the table of %llu offsets at %llu lies outside", count_, table_));
    }
    if (top_ >= count_) return fail(format("the top object %llu of %llu is missing", top_, count_));
    visits_.resize(static_cast<std::size_t>(count_));
    roomLimit_ = 1'000'000 + 64 * std::uint64_t{bytes_.size()};
    return true;
  }

  std::optional<Object> objectAt(std::uint64_t index) const {
    const std::uint64_t offset = numberAt(table_ + index * offsetSize_, offsetSize_);
    if (offset < 8 || offset >= table_) return std::nullopt;
    const auto marker = static_cast<unsigned>(numberAt(offset, 1));
    Object object{marker >> 4, marker & 15, marker & 15, offset + 1};
    const bool isCounted = object.type >= 4 && object.type != 8;
    if (!isCounted || object.info != 15) return object;
    if (object.content >= table_) return std::nullopt;
    const auto size = static_cast<unsigned>(numberAt(object.content, 1));
    if (size >> 4 != 1 || (size & 15) > 3) return std::nullopt;
    const std::uint64_t length = std::uint64_t{1} << (size & 15);
    if (length > table_ - object.content - 1) return std::nullopt;
    object.count = numberAt(object.content + 1, length);
    object.content += 1 + length;
    return object;
  }

  [[nodiscard]] bool hasRoomFor(const Object& object, std::uint64_t elementSize) const {
    return object.count <= (table_ - object.content) / elementSize;
  }

  /// The bytes of an object that contains no others; absent for one of no known type or that
  /// reaches outside.
  [[nodiscard]] std::optional<std::uint64_t> plainSize(const Object& object) const {
    std::uint64_t size = 0;
    switch (object.type) {
      case 0x0:
        if (object.info != 8 && object.info != 9) return std::nullopt;
        break;
      case 0x1:
        if (object.info > 4) return std::nullopt;
        size = std::uint64_t{1} << object.info;
        break;
      case 0x2:
        if (object.info != 2 && object.info != 3) return std::nullopt;
        size = std::uint64_t{1} << object.info;
        break;
      case 0x3:
        if (object.info != 3) return std::nullopt;
        size = 8;
        break;
      case 0x4:
      case 0x5:
        size = object.count;
        break;
      case 0x6:
        if (!hasRoomFor(object, 2)) return std::nullopt;
        size = object.count * 2;
        break;
      case 0x8:
        if (object.info > 7) return std::nullopt;
        size = object.info + 1;
        break;
      default:
        return std::nullopt;
    }
    return size <= table_ - object.content ? std::optional(size) : std::nullopt;
  }

  bool visit(std::uint64_t index, int depth) {
    Visit& seen = visits_[static_cast<std::size_t>(index)];
    if (seen.state == Visit::State::open) return failAt(index, "contains itself");
    if (seen.state == Visit::State::unseen && !measure(index, depth, seen)) return false;
    if (depth + seen.height > kMaximumDepth) {
      return fail(format("nested deeper than %d levels", kMaximumDepth));
    }
    return true;
  }

  bool measure(std::uint64_t index, int depth, Visit& seen) {
    const auto object = objectAt(index);
    if (!object) return failAt(index, "lies outside or has no readable length");
    constexpr std::uint64_t kRoomOfValue = 16;
    seen.room = kRoomOfValue;
    if (object->type != 0xa && object->type != 0xd) {
      const auto size = plainSize(*object);
      if (!size)
        return failAt(index, format("(marker 0x%x%x) is cut off or of no known type", object->type,
                                    object->info));
      seen.room += *size;
    } else {
      if (depth >= kMaximumDepth) {
        return fail(format("nested deeper than %d levels", kMaximumDepth));
      }
      seen.state = Visit::State::open;
      if (!measureChildren(index, *object, depth, seen)) return false;
    }
    seen.state = Visit::State::done;
    return true;
  }

  bool measureChildren(std::uint64_t index, const Object& object, int depth, Visit& seen) {
    const bool isDictionary = object.type == 0xd;
    if (!hasRoomFor(object, referenceSize_ * (isDictionary ? 2 : 1))) {
      return failAt(index, format("has %llu entries, more than there is room for", object.count));
    }
    const std::uint64_t children = object.count * (isDictionary ? 2 : 1);
    seen.height = 1;
    for (std::uint64_t i = 0; i < children; ++i) {
      const std::uint64_t child = numberAt(object.content + i * referenceSize_, referenceSize_);
      if (child >= count_) return failAt(index, format("refers to the missing object %llu", child));
      if (isDictionary && i < object.count && !isKey(child)) {
        return failAt(index, "has a key that is no text or holds a zero character");
      }
      if (!visit(child, depth + 1)) return false;
      const Visit& entry = visits_[static_cast<std::size_t>(child)];
      seen.height =
          std::max<std::uint16_t>(seen.height, static_cast<std::uint16_t>(entry.height + 1));
      seen.room += entry.room;
      if (seen.room > roomLimit_) return failAt(index, "repeats shared objects too often");
    }
    return true;
  }

  /// libplist stops the process at a zero character in a key.
  [[nodiscard]] bool isKey(std::uint64_t index) const {
    const auto object = objectAt(index);
    if (!object || (object->type != 0x5 && object->type != 0x6)) return false;
    const std::uint64_t unit = object->type - 4;
    for (std::uint64_t i = 0; hasRoomFor(*object, unit) && i < object->count; ++i) {
      if (numberAt(object->content + i * unit, unit) == 0) return false;
    }
    return true;
  }

  Bytes bytes_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  std::uint64_t roomLimit_ = 0;
  std::vector<Visit> visits_;
  std::optional<Error> error_;
};

}  // namespace

Result<CheckedXML> checkedXMLPropertyList(std::string_view text, std::string& storage) {
  return XMLScanner(text, storage).scan();
}

Result<> checkBinaryPropertyList(Bytes bytes) { return BinaryWalker(bytes).walk(); }

}  // namespace foundation

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include <expat.h>

#include "foundation/base/Base64.h"
#include "foundation/base/Format.h"
#include "foundation/base/Handle.h"
#include "foundation/base/UnicodeText.h"
#include "foundation/format/private/PropertyListReaders.h"

namespace foundation::PropertyList {

namespace {

constexpr std::string_view kForm = "XML property list";
constexpr std::string_view kBlanks = " \t\r\n";

enum class Element { plist, array, dictionary, key, string, integer, real, date, data, yes, no };

/// The most frequent ones first.
constexpr std::array<std::pair<const char*, Element>, 11> kElements{{{"key", Element::key},
                                                                     {"data", Element::data},
                                                                     {"dict", Element::dictionary},
                                                                     {"string", Element::string},
                                                                     {"true", Element::yes},
                                                                     {"array", Element::array},
                                                                     {"integer", Element::integer},
                                                                     {"false", Element::no},
                                                                     {"real", Element::real},
                                                                     {"date", Element::date},
                                                                     {"plist", Element::plist}}};

std::optional<Element> elementNamed(const char* name) {
  for (const auto& [known, element] : kElements) {
    if (*known == *name && std::strcmp(known, name) == 0) return element;
  }
  return std::nullopt;
}

std::string_view nameOf(Element element) {
  for (const auto& [name, each] : kElements) {
    if (each == element) return name;
  }
  return {};
}

/// Elements that hold others; all the rest hold text.
bool holdsElements(Element element) { return element <= Element::dictionary; }

/// Decimal, hexadecimal ("0x") or octal ("0"), with a sign; anything else is 0.
Value integerOf(const std::string& text) {
  const char* digits = text.c_str() + std::min(text.find_first_not_of(kBlanks), text.size());
  const bool isNegative = *digits == '-';
  if (isNegative || *digits == '+') ++digits;
  const std::uint64_t number = std::strtoull(digits, nullptr, 0);
  return isNegative ? Value(static_cast<std::int64_t>(0 - number)) : Value(number);
}

/// ISO 8601 in UTC. What follows the first thing out of place stays as in the first second of 1970.
std::optional<Date> dateOf(const std::string& text) {
  std::tm fields{};
  fields.tm_year = 70;
  fields.tm_mday = 1;
  ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields);
  return dateAt(static_cast<double>(::timegm(&fields)));
}

/// The text with blanks in its comments: the platform's parser takes any bytes in them, among those
/// "--"; expat does not. Line ends and all places stay.
std::string_view withBlankComments(std::string_view text, std::string& storage) {
  if (text.find("<!--") == std::string_view::npos) return text;
  storage = text;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
    const std::string_view rest = text.substr(at);
    const bool isComment = rest.starts_with("<!--");
    const std::string_view end = isComment                       ? "-->"
                                 : rest.starts_with("<![CDATA[") ? "]]>"
                                 : rest.starts_with("<?")        ? "?>"
                                                                 : ">";
    // Literals and an internal subset of a DOCTYPE may hold what looks like a comment.
    const auto tag = rest.substr(0, rest.find('>'));
    if (tag.starts_with("<!D") && (std::ranges::count(tag, '"') % 2 != 0 ||
                                   tag.find_first_of("['") != std::string_view::npos)) {
      return text;
    }
    const std::size_t start = at + (isComment ? 4 : 1);
    at = text.find(end, start);
    if (at == std::string_view::npos) break;
    if (isComment) {
      std::replace_if(
          storage.begin() + static_cast<std::ptrdiff_t>(start),
          storage.begin() + static_cast<std::ptrdiff_t>(at), [](char c) { return c != '\n'; }, ' ');
    }
  }
  return storage;
}

/// Builds values of the parser's events; the first thing that is wrong ends it.
class XMLReader {
 public:
  XMLReader(std::string_view text, Ambiguity ambiguity, const EntryTakers& takers)
      : text_(text), ambiguity_(ambiguity), takers_(takers), parser_(XML_ParserCreate("UTF-8")) {
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const char* name, const char**) {
          static_cast<XMLReader*>(self)->start(name);
        },
        [](void* self, const char*) { static_cast<XMLReader*>(self)->end(); });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* part, int size) {
      static_cast<XMLReader*>(self)->characters({part, static_cast<std::size_t>(size)});
    });
    // Entities multiply what is read, and default attributes do so for each element.
    XML_SetEntityDeclHandler(
        parser_.get(), [](void* self, auto...) { static_cast<XMLReader*>(self)->declaration(); });
    XML_SetAttlistDeclHandler(
        parser_.get(), [](void* self, auto...) { static_cast<XMLReader*>(self)->declaration(); });
    XML_SetSkippedEntityHandler(parser_.get(), [](void* self, const char*, int) {
      static_cast<XMLReader*>(self)->skippedEntity();
    });
  }

  Result<Value> read() {
    for (std::size_t fed = start_; fed < text_.size() && !isDone_ && !error_;) {
      // Markup that runs past a chunk is scanned again with the next one, so chunks grow.
      const std::size_t size = std::min(text_.size() - fed, std::max(kChunk, fed / 8));
      void* const buffer = XML_GetBuffer(parser_.get(), static_cast<int>(size));
      if (!buffer) return readError(kForm, "a piece of markup is too long");
      std::memcpy(buffer, text_.data() + fed, size);
      fed += size;
      const bool isLast = fed == text_.size();
      const auto status = XML_ParseBuffer(parser_.get(), static_cast<int>(size), isLast);
      if (status != XML_STATUS_OK && !isDone_ && !error_) error_ = parserError();
    }
    if (error_) return *error_;
    if (!top_) return malformed();
    if (ambiguity_ == Ambiguity::accepted) return *std::move(top_);
    if (text_.find_first_not_of(kBlanks, end_) != std::string_view::npos) {
      return readError(kForm, format("goes on after its end at byte %llu", std::uint64_t{end_}));
    }
    if (ambiguous_) return readError(kForm, ambiguous_);
    return *std::move(top_);
  }

 private:
  struct Container {
    Value value;
    /// Of the entry that comes next.
    std::optional<std::string> key;
    const EntryTaker* taker = nullptr;
  };

  static constexpr std::size_t kChunk = 65536;
  static constexpr const char* kNoCharacter = "an \"&\" begins no character";

  static Error malformed() { return readError(kForm, "malformed"); }

  void fail(Error error) {
    if (!error_) error_ = std::move(error);
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  [[nodiscard]] std::size_t position() const {
    const auto fed = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
    return std::min(start_ + fed, text_.size());
  }

  [[nodiscard]] Error errorAt(std::size_t place, std::string_view complaint) const {
    return readErrorAt(kForm, text_, place, complaint);
  }

  /// Handlers may still be called once after the parser has been stopped.
  [[nodiscard]] bool isStopped() const { return error_ || isDone_; }

  void declaration() {
    if (!isStopped()) fail(errorAt(position(), "entities and attributes must not be declared"));
  }

  void skippedEntity() {
    if (!isStopped()) fail(errorAt(position(), kNoCharacter));
  }

  void start(const char* name) {
    if (isStopped()) return;
    const auto element = elementNamed(name);
    if (!element || (!open_.empty() && !holdsElements(open_.back()))) return fail(malformed());
    const bool isContainer = element == Element::array || element == Element::dictionary;
    // Around the containers there is <plist>, and inside the deepest a plain value.
    if (open_.size() == kMaximumDepth + 2 || (isContainer && containers_.size() == kMaximumDepth)) {
      return fail(errorAt(position(), format("nested deeper than %d levels", kMaximumDepth)));
    }
    open_.push_back(*element);
    content_.clear();
    if (!isContainer) return;
    const EntryTaker* const taker = element == Element::dictionary ? takerOfNext() : nullptr;
    containers_.push_back(
        {element == Element::array ? Value(Array()) : Value(Dictionary()), {}, taker});
  }

  /// For a dictionary that begins here, if it is an entry of the top one.
  [[nodiscard]] const EntryTaker* takerOfNext() const {
    if (containers_.size() != 1 || !containers_.front().key) return nullptr;
    const auto taker = takers_.find(*containers_.front().key);
    return taker == takers_.end() ? nullptr : &taker->second;
  }

  void characters(std::string_view text) {
    if (isStopped()) return;
    if (!open_.empty() && !holdsElements(open_.back())) {
      // The parser turns every line end into a line feed; the platform's does not.
      const std::size_t place = text == "\n" ? position() : text_.size();
      const bool isReturn = place < text_.size() && text_[place] == '\r';
      content_ += isReturn ? text_.substr(place, XML_GetCurrentByteCount(parser_.get())) : text;
    } else if (text.find_first_not_of(kBlanks) != std::string_view::npos) {
      fail(malformed());
    }
  }

  void end() {
    if (isStopped()) return;
    const Element element = open_.back();
    open_.pop_back();
    switch (element) {
      case Element::plist:
        break;
      case Element::array:
      case Element::dictionary:
        endContainer();
        break;
      case Element::key:
        endKey();
        break;
      case Element::string:
        add(std::move(content_));
        break;
      case Element::integer:
        add(integerOf(content_));
        break;
      case Element::real:
        add(std::strtod(content_.c_str(), nullptr));
        break;
      case Element::date:
        endDate();
        break;
      case Element::data:
        add(Data(decodeBase64(content_)));
        break;
      case Element::yes:
      case Element::no:
        add(element == Element::yes);
        break;
    }
    if (!open_.empty() || error_) return;
    isDone_ = true;
    end_ = position() + static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()));
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  void endContainer() {
    Container done = std::move(containers_.back());
    containers_.pop_back();
    if (done.key) ambiguous_ = "a key has no value";
    add(std::move(done.value));
  }

  /// Where a value is due, the text of a key is one.
  void endKey() {
    Container* const into = containers_.empty() ? nullptr : &containers_.back();
    if (into && into->value.dictionary() && !into->key) {
      into->key = std::move(content_);
      return;
    }
    if (into && into->value.dictionary()) ambiguous_ = "a key has no value";
    add(std::move(content_));
  }

  void endDate() {
    const auto date = dateOf(content_);
    if (!date) return fail(readError(kForm, "a date outside the years 1 to 9999"));
    add(*date);
  }

  void add(Value value) {
    if (containers_.empty()) {
      if (top_) ambiguous_ = "there is a second list";
      if (!top_) top_ = std::move(value);
      return;
    }
    Container& into = containers_.back();
    if (Array* array = into.value.array()) {
      array->push_back(std::move(value));
      return;
    }
    if (!into.key) return fail(malformed());
    std::string key = *std::exchange(into.key, std::nullopt);
    const bool isNew = into.taker ? (*into.taker)(std::move(key), std::move(value))
                                  : set(*into.value.dictionary(), std::move(key), std::move(value));
    if (!isNew) ambiguous_ = "a dictionary has a key twice";
  }

  [[nodiscard]] Error parserError() const {
    const XML_Error code = XML_GetErrorCode(parser_.get());
    const std::size_t place = position();
    const std::string_view rest = text_.substr(place);
    switch (code) {
      case XML_ERROR_UNCLOSED_TOKEN:
        if (!rest.starts_with("<!") && !rest.starts_with("<?")) {
          return errorAt(place, "the tag that begins here does not end");
        }
        [[fallthrough]];
      case XML_ERROR_NO_ELEMENTS:
      case XML_ERROR_UNCLOSED_CDATA_SECTION:
        return errorAt(text_.size(), unfinished());
      case XML_ERROR_TAG_MISMATCH: {
        const auto name = rest.substr(0, rest.find_first_of(" \t\r\n>"));
        return errorAt(place, format("</%@> closes nothing that is open here", name.substr(0, 32)));
      }
      case XML_ERROR_UNDEFINED_ENTITY:
      case XML_ERROR_BAD_CHAR_REF:
        return errorAt(place, kNoCharacter);
      case XML_ERROR_INVALID_TOKEN:
        if (!rest.empty() && !firstCodePoint(rest))
          return readError(kForm, "text that is not UTF-8");
        if (isInReference(place)) return errorAt(place, kNoCharacter);
        [[fallthrough]];
      default:
        return errorAt(place, XML_ErrorString(code));
    }
  }

  [[nodiscard]] std::string unfinished() const {
    if (open_.empty()) return "there is no element";
    return format("the text ends inside <%@>", nameOf(open_.back()));
  }

  [[nodiscard]] bool isInReference(std::size_t place) const {
    const std::size_t start = text_.substr(0, place).find_last_of("&;<> \t\r\n");
    return start != std::string_view::npos && text_[start] == '&';
  }

  std::string_view text_;
  /// Where the parser's part begins: it takes no blanks before an XML declaration.
  std::size_t start_ = std::min(text_.find_first_not_of(kBlanks), text_.size());
  Ambiguity ambiguity_;
  const EntryTakers& takers_;
  Handle<std::remove_pointer_t<XML_Parser>, XML_ParserFree> parser_;
  std::vector<Element> open_;
  std::vector<Container> containers_;
  /// The text in the innermost element so far.
  std::string content_;
  std::optional<Value> top_;
  /// Where the outermost element ends.
  std::size_t end_ = 0;
  bool isDone_ = false;
  /// Why other readers may read this differently.
  const char* ambiguous_ = nullptr;
  std::optional<Error> error_;
};

}  // namespace

Result<Value> parseXML(std::string_view text, Ambiguity ambiguity, const EntryTakers& takers) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    return readError(kForm, format("%llu bytes are too many", std::uint64_t{text.size()}));
  }
  std::string storage;
  return XMLReader(withBlankComments(text, storage), ambiguity, takers).read();
}

}  // namespace foundation::PropertyList

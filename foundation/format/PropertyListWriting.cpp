#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "foundation/base/Base64.h"
#include "foundation/base/Format.h"
#include "foundation/base/UnicodeText.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"

namespace foundation::PropertyList {

namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";

std::string realText(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-infinity" : "+infinity";
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  return {digits.data(), end};
}

/// Collects the text; the first thing that cannot be written ends it.
class Writer {
 public:
  Result<std::string> write(const Value& value) {
    out_ = kHeader;
    if (!any(value, 0)) return makeError(kCocoaErrorDomain, 3851, "property list: " + complaint_);
    out_ += kFooter;
    return std::move(out_);
  }

 private:
  bool fail(std::string complaint) {
    complaint_ = std::move(complaint);
    return false;
  }

  void indent(std::size_t level) { out_.append(level, '\t'); }

  bool line(std::size_t level, std::string_view text) {
    indent(level);
    out_.append(text).append("\n");
    return true;
  }

  bool element(std::size_t level, std::string_view name, std::string_view content) {
    return line(level, format("<%@>%@</%@>", name, content, name));
  }

  bool any(const Value& value, std::size_t level) {
    switch (value.type()) {
      case Value::Type::boolean:
        return line(level, *value.boolean() ? "<true/>" : "<false/>");
      case Value::Type::integer:
        return element(level, "integer", std::to_string(*value.integer()));
      case Value::Type::unsignedInteger:
        return element(level, "integer", std::to_string(*value.unsignedInteger()));
      case Value::Type::real:
        return element(level, "real", realText(*value.real()));
      case Value::Type::string:
        return text(level, "string", *value.string());
      case Value::Type::date:
        return date(*value.date(), level);
      case Value::Type::data:
        return data(*value.data(), level);
      case Value::Type::uid:
        return dictionary({{"CF$UID", Value(value.uid()->number)}}, level);
      case Value::Type::array:
        return array(*value.array(), level);
      case Value::Type::dictionary:
        return dictionary(*value.dictionary(), level);
      case Value::Type::null:
      case Value::Type::error:
        break;
    }
    return fail("a value of class " + className(&value) + " cannot be written");
  }

  bool text(std::size_t level, std::string_view name, std::string_view content) {
    indent(level);
    out_.append("<").append(name).append(">");
    for (std::string_view rest = content; !rest.empty();) {
      const auto next = firstCodePoint(rest);
      if (!next) return fail("text that is not UTF-8 cannot be written");
      if (!character(next->value, rest.substr(0, next->length))) return false;
      rest.remove_prefix(next->length);
    }
    out_.append("</").append(name).append(">\n");
    return true;
  }

  /// A carriage return is escaped, since a reader takes a bare one for a line feed.
  bool character(char32_t code, std::string_view bytes) {
    if ((code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code == 0xfffe ||
        code == 0xffff) {
      return fail(format("text with the character U+%04X cannot be written", std::uint32_t{code}));
    }
    switch (code) {
      case '&':
        out_ += "&amp;";
        break;
      case '<':
        out_ += "&lt;";
        break;
      case '>':
        out_ += "&gt;";
        break;
      case '\r':
        out_ += "&#13;";
        break;
      default:
        out_ += bytes;
    }
    return true;
  }

  bool date(Date date, std::size_t level) {
    const std::string text = description(date);
    if (text.size() != 25 || text.starts_with('-')) {
      return fail("the date " + text + " cannot be written");
    }
    return element(level, "date", text.substr(0, 10) + "T" + text.substr(11, 8) + "Z");
  }

  bool data(const Data& data, std::size_t level) {
    line(level, "<data>");
    // Lines end at column 76, tabs taken as eight columns, as long as that leaves room.
    const std::size_t width = level < 7 ? 76 - level * 8 : 20;
    std::string encoded;
    appendBase64(encoded, data.bytes());
    for (std::string_view rest = encoded; !rest.empty();) {
      const std::size_t length = std::min(rest.size(), width);
      line(level, rest.substr(0, length));
      rest.remove_prefix(length);
    }
    return line(level, "</data>");
  }

  bool enter(std::size_t level) {
    if (level < kMaximumDepth) return true;
    return fail(format("nested deeper than %d levels", kMaximumDepth));
  }

  bool array(const Array& values, std::size_t level) {
    if (!enter(level)) return false;
    if (values.empty()) return line(level, "<array/>");
    line(level, "<array>");
    for (const Value& value : values) {
      if (!any(value, level + 1)) return false;
    }
    return line(level, "</array>");
  }

  bool dictionary(const Dictionary& entries, std::size_t level) {
    if (!enter(level)) return false;
    if (entries.empty()) return line(level, "<dict/>");
    line(level, "<dict>");
    for (const auto& [key, value] : entries) {
      if (!text(level + 1, "key", key) || !any(value, level + 1)) return false;
    }
    return line(level, "</dict>");
  }

  std::string out_;
  std::string complaint_;
};

}  // namespace

Result<std::string> xml(const Value& value) { return Writer().write(value); }

Result<> writeToFileAtomically(const Value& value, const std::filesystem::path& path) {
  const auto text = xml(value);
  if (!text) return text.error();
  return FileManager::writeAtomically(bytesOf(*text), path);
}

}  // namespace foundation::PropertyList

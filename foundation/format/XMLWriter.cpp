#include "foundation/format/XMLWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "foundation/base/Base64.h"
#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/format/PropertyList.h"
#include "foundation/format/PropertyListErrors.h"

namespace foundation::PropertyList {

namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string realText(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-infinity" : "+infinity";
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  return {digits.data(), end};
}

/// What is not written as it is, or cannot be; 0xef begins U+FFFE and U+FFFF.
bool isSpecial(char c) {
  if (static_cast<unsigned char>(c) < 0x20) return c != '\t' && c != '\n';
  return c == '&' || c == '<' || c == '>' || c == '\xef';
}

}  // namespace

bool XMLWriter::canWrite(std::string_view text) {
  const auto isControl = [](unsigned char c) {
    return c < ' ' && c != '\t' && c != '\n' && c != '\r';
  };
  return isUTF8(text) && std::ranges::none_of(text, isControl) &&
         text.find("\ufffe") == text.npos && text.find("\uffff") == text.npos;
}

XMLWriter::XMLWriter() : out_(kHeader) {}

void XMLWriter::beginDictionary() { begin("dict"); }

void XMLWriter::endDictionary() { end("dict"); }

void XMLWriter::key(std::string_view text) { this->text("key", text); }

void XMLWriter::value(const Value& value) {
  if (complaint_) return;
  switch (value.type()) {
    case Value::Type::boolean:
      return line(*value.boolean() ? "<true/>" : "<false/>");
    case Value::Type::integer:
      return element("integer", std::to_string(*value.integer()));
    case Value::Type::unsignedInteger:
      return element("integer", std::to_string(*value.unsignedInteger()));
    case Value::Type::real:
      return element("real", realText(*value.real()));
    case Value::Type::string:
      return text("string", *value.string());
    case Value::Type::date:
      return date(*value.date());
    case Value::Type::data:
      return data(value.data()->bytes());
    case Value::Type::uid:
      return dictionary({{"CF$UID", Value(value.uid()->number)}});
    case Value::Type::array:
      return array(*value.array());
    case Value::Type::dictionary:
      return dictionary(*value.dictionary());
    case Value::Type::null:
    case Value::Type::error:
      return fail("a value of class " + className(&value) + " cannot be written");
  }
}

Result<std::string> XMLWriter::finish() {
  if (complaint_) {
    return makeError(kCocoaErrorDomain, kPropertyListWriteStream, "property list: " + *complaint_);
  }
  out_ += "</plist>\n";
  return std::move(out_);
}

void XMLWriter::fail(std::string complaint) {
  if (!complaint_) complaint_ = std::move(complaint);
}

void XMLWriter::begin(std::string_view name) {
  if (level_ == kMaximumDepth) fail(format("nested deeper than %d levels", kMaximumDepth));
  line("<" + std::string(name) + ">");
  ++level_;
}

void XMLWriter::end(std::string_view name) {
  --level_;
  const std::string tag = "<" + std::string(name) + ">\n";
  if (!out_.ends_with(tag)) return line("</" + std::string(name) + ">");
  out_.replace(out_.size() - 2, 2, "/>\n");
}

void XMLWriter::line(std::string_view text) { out_.append(level_, '\t').append(text).append("\n"); }

void XMLWriter::element(std::string_view name, std::string_view content) {
  out_.append(level_, '\t').append("<").append(name).append(">");
  out_.append(content).append("</").append(name).append(">\n");
}

void XMLWriter::text(std::string_view name, std::string_view content) {
  if (!isUTF8(content)) return fail("text that is not UTF-8 cannot be written");
  out_.append(level_, '\t').append("<").append(name).append(">");
  for (;;) {
    const auto next = std::find_if(content.begin(), content.end(), isSpecial);
    out_.append(content.begin(), next);
    content = {next, content.end()};
    if (content.empty()) break;
    special(content);
    content.remove_prefix(1);
  }
  out_.append("</").append(name).append(">\n");
}

/// The first character of `content`. A carriage return is escaped, since a reader takes a bare one
/// for a line feed.
void XMLWriter::special(std::string_view content) {
  const auto unwritable = [this](unsigned code) {
    fail(format("text with the character U+%04X cannot be written", code));
  };
  switch (content[0]) {
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
    case '\xef':
      out_ += content[0];
      if (content.starts_with("\ufffe")) unwritable(0xfffe);
      if (content.starts_with("\uffff")) unwritable(0xffff);
      break;
    default:
      unwritable(static_cast<unsigned char>(content[0]));
  }
}

void XMLWriter::date(Date date) {
  const std::string text = description(date);
  if (text.size() != 25 || text.starts_with('-')) {
    return fail("the date " + text + " cannot be written");
  }
  element("date", text.substr(0, 10) + "T" + text.substr(11, 8) + "Z");
}

void XMLWriter::data(Bytes bytes) {
  line("<data>");
  // Lines end at column 76, tabs taken as eight columns, as long as that leaves room.
  const std::size_t width = level_ < 7 ? 76 - level_ * 8 : 20;
  while (!bytes.empty()) {
    const Bytes next = bytes.first(std::min(bytes.size(), width / 4 * 3));
    out_.append(level_, '\t');
    appendBase64(out_, next);
    out_ += '\n';
    bytes = bytes.subspan(next.size());
  }
  line("</data>");
}

void XMLWriter::array(const Array& values) {
  begin("array");
  for (const Value& each : values) value(each);
  end("array");
}

void XMLWriter::dictionary(const Dictionary& entries) {
  beginDictionary();
  for (const auto& [name, each] : entries) {
    key(name);
    value(each);
  }
  endDictionary();
}

Result<std::string> xml(const Value& value) {
  XMLWriter writer;
  writer.value(value);
  return writer.finish();
}

}  // namespace foundation::PropertyList

#include "foundation/format/JSON.h"

#include <nlohmann/json.hpp>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"
#include "foundation/format/PropertyListErrors.h"

namespace foundation::JSON {

namespace {

using Native = nlohmann::json;

Error jsonError(const std::string& what) {
  return makeError(kCocoaErrorDomain, kPropertyListReadCorrupt, "JSON: " + what);
}

/// Takes the parser's events and builds values, without any recursion.
class Builder : public nlohmann::json_sax<Native> {
 public:
  bool null() override { return add(Value()); }
  bool boolean(bool flag) override { return add(flag); }
  bool number_integer(number_integer_t number) override { return add(std::int64_t{number}); }
  bool number_unsigned(number_unsigned_t number) override { return add(std::uint64_t{number}); }
  bool number_float(number_float_t number, const string_t&) override { return add(number); }
  bool string(string_t& text) override { return add(std::move(text)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Dictionary()); }
  bool start_array(std::size_t) override { return open(Array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(string_t& name) override {
    open_.back().key = std::move(name);
    return true;
  }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& problem) override {
    complaint_ = problem.id == 406 ? "number out of range" : "malformed";
    complaint_ += " at byte " + std::to_string(position);
    return false;
  }

  [[nodiscard]] const std::string& complaint() const { return complaint_; }
  Value take() { return std::move(top_); }

 private:
  struct Container {
    Value value;
    std::string key;
  };

  bool fail(std::string complaint) {
    complaint_ = std::move(complaint);
    return false;
  }

  bool open(Value container) {
    if (open_.size() == kMaximumDepth) {
      return fail("nested deeper than " + std::to_string(kMaximumDepth) + " levels");
    }
    open_.push_back({std::move(container), {}});
    return true;
  }

  bool close() {
    Value done = std::move(open_.back().value);
    open_.pop_back();
    if (!open_.empty()) return add(std::move(done));
    top_ = std::move(done);
    return true;
  }

  bool add(Value value) {
    if (open_.empty()) return fail("the top level is neither an array nor an object");
    Container& into = open_.back();
    if (Array* array = into.value.array()) {
      array->push_back(std::move(value));
    } else {
      into.value.dictionary()->insert_or_assign(std::move(into.key), std::move(value));
    }
    return true;
  }

  std::vector<Container> open_;
  Value top_;
  std::string complaint_;
};

std::string isoText(Date date) {
  std::string text = description(date);
  text.replace(10, 1, "T");
  return text.substr(0, 19) + "Z";
}

Native native(const Value& value);

Native nativeArray(const Array& values) {
  Native result = Native::array();
  for (const Value& value : values) result.push_back(native(value));
  return result;
}

Native nativeObject(const Dictionary& entries) {
  Native result = Native::object();
  for (const auto& [key, value] : entries) result[key] = native(value);
  return result;
}

Native native(const Value& value) {
  switch (value.type()) {
    case Value::Type::null:
      return nullptr;
    case Value::Type::boolean:
      return *value.boolean();
    case Value::Type::integer:
      return *value.integer();
    case Value::Type::unsignedInteger:
      return *value.unsignedInteger();
    case Value::Type::real:
      return *value.real();
    case Value::Type::string:
      return *value.string();
    case Value::Type::date:
      return isoText(*value.date());
    case Value::Type::data:
      return lowercaseHex(value.data()->bytes());
    case Value::Type::uid:
      return value.uid()->number;
    case Value::Type::array:
      return nativeArray(*value.array());
    case Value::Type::dictionary:
      return nativeObject(*value.dictionary());
    case Value::Type::error:
      return value.error()->description();
  }
  return nullptr;
}

}  // namespace

Result<Value> decode(Bytes bytes) {
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (!text) return jsonError("ill-formed UTF-16 or UTF-32 text");
  Builder builder;
  if (Native::sax_parse(*text, &builder)) return builder.take();
  return jsonError(builder.complaint());
}

std::string encode(const Value& value, int indent) {
  const std::string text = native(value).dump(indent, ' ', false, Native::error_handler_t::replace);
  std::string out;
  out.reserve(text.size());
  // The other control characters are escaped already, and the text is UTF-8.
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDelete = text[i] == '\x7f';
    const bool isC1 = text[i] == '\xc2' && static_cast<unsigned char>(text[i + 1]) < 0xa0;
    if (isC1) ++i;
    if (isDelete || isC1) {
      out += "\\u00" + lowercaseHex(bytesOf(std::string_view(text).substr(i, 1)));
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace foundation::JSON

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"

namespace foundation {

namespace {

enum class Layout { severalLines, oneLine };

bool isPlainCharacter(char c) {
  return isLetter(c) || isDigit(c) || std::string_view("_$./:").find(c) != std::string_view::npos;
}

/// A string inside an array or dictionary: quoted unless it is a plain word.
std::string quotedWhereNeeded(std::string_view text) {
  bool isPlain = !text.empty();
  std::string out = "\"";
  for (const char c : text) {
    isPlain = isPlain && isPlainCharacter(c);
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  if (isPlain) return std::string(text);
  return escapingControlCharacters(out += '"');
}

std::string realText(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-inf" : "+inf";
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  return {digits.data(), end};
}

std::string dataText(const Data& data) {
  std::string out = "<";
  const std::string hex = lowercaseHex(data.bytes());
  for (std::size_t i = 0; i < hex.size(); i += 8) {
    if (i > 0) out += ' ';
    out += hex.substr(i, 8);
  }
  return out += ">";
}

class Describer {
 public:
  explicit Describer(Layout layout) : layout_(layout) {}

  std::string top(const Value& value) const {
    const std::string* text = value.string();
    if (!text) return any(value, 0);
    return layout_ == Layout::oneLine ? escapingControlCharacters(*text) : *text;
  }

 private:
  [[nodiscard]] std::string any(const Value& value, int level) const {
    switch (value.type()) {
      case Value::Type::null:
        return "<null>";
      case Value::Type::boolean:
        return *value.boolean() ? "1" : "0";
      case Value::Type::integer:
        return std::to_string(*value.integer());
      case Value::Type::unsignedInteger:
        return std::to_string(*value.unsignedInteger());
      case Value::Type::real:
        return realText(*value.real());
      case Value::Type::string:
        return quotedWhereNeeded(*value.string());
      case Value::Type::date:
        return level == 0 ? description(*value.date()) : '"' + description(*value.date()) + '"';
      case Value::Type::data:
        return dataText(*value.data());
      case Value::Type::uid:
        return format("{value = %llu}", value.uid()->number);
      case Value::Type::array:
        return array(*value.array(), level);
      case Value::Type::dictionary:
        return dictionary(*value.dictionary(), level);
      case Value::Type::error:
        return value.error()->description();
    }
    return {};
  }

  [[nodiscard]] std::string array(const Array& values, int level) const {
    std::string out = "(";
    for (const Value& value : values) {
      if (&value != values.data()) out += layout_ == Layout::oneLine ? ", " : ",";
      out += lineStart(level + 1) + any(value, level + 1);
    }
    return out += (values.empty() && layout_ == Layout::oneLine ? "" : lineStart(level)) + ")";
  }

  [[nodiscard]] std::string dictionary(const Dictionary& entries, int level) const {
    std::string out = "{";
    bool isFirst = true;
    for (const auto& [key, value] : entries) {
      if (!isFirst && layout_ == Layout::oneLine) out += ' ';
      isFirst = false;
      out += lineStart(level + 1) + quotedWhereNeeded(key) + " = " + any(value, level + 1) + ";";
    }
    return out += lineStart(level) + "}";
  }

  [[nodiscard]] std::string lineStart(int level) const {
    if (layout_ == Layout::oneLine) return {};
    return "\n" + std::string(static_cast<std::size_t>(level) * 4, ' ');
  }

  Layout layout_;
};

}  // namespace

std::string description(const Value& value) { return Describer(Layout::severalLines).top(value); }

std::string singleLineDescription(const Value& value) {
  return Describer(Layout::oneLine).top(value);
}

std::string description(Date date) {
  const auto day = std::chrono::floor<std::chrono::days>(date);
  const std::chrono::year_month_day calendar(day);
  const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(date - day));
  std::array<char, 64> text;
  const int length = std::snprintf(
      text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d +0000",
      static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
      static_cast<unsigned>(calendar.day()), static_cast<int>(time.hours().count()),
      static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string dayOf(Date date) {
  const std::string text = description(date);
  return text.substr(0, text.find(' '));
}

std::string className(const Value* value) {
  // In the order of `Value::Type`.
  constexpr std::array<const char*, 12> kNames{"NSNull",         "__NSCFBoolean",   "__NSCFNumber",
                                               "__NSCFNumber",   "__NSCFNumber",    "__NSCFString",
                                               "__NSTaggedDate", "NSConcreteData",  "__NSCFType",
                                               "__NSArrayM",     "__NSDictionaryM", "NSError"};
  static_assert(kNames.size() == static_cast<std::size_t>(Value::Type::error) + 1);
  return value ? kNames[static_cast<std::size_t>(value->type())] : "(null)";
}

}  // namespace foundation

#include "foundation/base/Format.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "foundation/base/Text.h"

namespace foundation {

namespace {

/// One "%…" of a format; length modifiers are skipped.
struct Directive {
  std::string flags;
  int width = 0;
  int precision = -1;
  char conversion = '\0';
  /// In characters of the format, including the percent sign.
  std::size_t length = 0;
};

/// Larger widths and precisions are clamped.
constexpr int kWidestField = 4096;

int takeNumber(std::string_view& text) {
  int number = 0;
  while (!text.empty() && isDigit(text[0])) {
    number = std::min(number * 10 + (text[0] - '0'), kWidestField);
    text.remove_prefix(1);
  }
  return number;
}

/// `text` begins with a percent sign.
Directive directiveAt(std::string_view text) {
  Directive result;
  std::string_view rest = text.substr(1);
  const std::size_t flags = std::min(rest.find_first_not_of("-+ #0"), rest.size());
  result.flags = rest.substr(0, flags);
  rest.remove_prefix(flags);
  result.width = takeNumber(rest);
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    result.precision = takeNumber(rest);
  }
  rest.remove_prefix(std::min(rest.find_first_not_of("hlqjztL"), rest.size()));
  if (!rest.empty()) {
    result.conversion = rest[0];
    rest.remove_prefix(1);
  }
  result.length = text.size() - rest.size();
  return result;
}

template <class T>
std::string printed(const Directive& directive, std::string_view modifier, char conversion,
                    T value) {
  std::string pattern = "%" + directive.flags;
  if (directive.width > 0) pattern += std::to_string(directive.width);
  if (directive.precision >= 0) pattern += "." + std::to_string(directive.precision);
  pattern += modifier;
  pattern += conversion;
  std::string out(static_cast<std::size_t>(std::snprintf(nullptr, 0, pattern.c_str(), value)),
                  '\0');
  std::snprintf(out.data(), out.size() + 1, pattern.c_str(), value);
  return out;
}

std::string padded(const Directive& directive, std::string text) {
  const auto width = static_cast<std::size_t>(directive.width);
  if (text.size() >= width) return text;
  const bool isLeft = directive.flags.find('-') != std::string::npos;
  text.insert(isLeft ? text.size() : 0, width - text.size(), ' ');
  return text;
}

std::string addressText(const void* address) {
  char digits[16];
  const auto number = reinterpret_cast<std::uintptr_t>(address);
  const auto end = std::to_chars(digits, std::end(digits), number, 16).ptr;
  return "0x" + std::string(digits, end);
}

struct ObjectText {
  std::string operator()(FormatArgument::Absent) const { return "(null)"; }
  std::string operator()(std::string_view text) const { return std::string(text); }
  std::string operator()(const Value* value) const { return description(*value); }
  std::string operator()(const Error* error) const { return error->description(); }
  std::string operator()(const void* address) const { return addressText(address); }
  std::string operator()(double number) const { return description(Value(number)); }
  std::string operator()(std::integral auto number) const { return std::to_string(number); }
};

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

std::string formatted(const Directive& directive, const FormatArgument::Storage& argument) {
  const char c = directive.conversion;
  const auto* number = std::get_if<std::int64_t>(&argument);
  const auto* natural = std::get_if<std::uint64_t>(&argument);
  if (isOneOf(c, "di")) {
    if (number) return printed(directive, "ll", 'd', static_cast<long long>(*number));
    if (natural) return printed(directive, "ll", 'u', static_cast<unsigned long long>(*natural));
  }
  if (isOneOf(c, "uxXo") && (number || natural)) {
    const auto bits = number ? static_cast<std::uint64_t>(*number) : *natural;
    return printed(directive, "ll", c, static_cast<unsigned long long>(bits));
  }
  const auto* real = std::get_if<double>(&argument);
  if (isOneOf(c, "fFeEgG") && real) return printed(directive, "", c, *real);
  if (c == 'p' && std::holds_alternative<FormatArgument::Absent>(argument)) return "0x0";
  return padded(directive, std::visit(ObjectText{}, argument));
}

}  // namespace

std::string formatArguments(std::string_view format, const FormatArgument* arguments,
                            std::size_t count) {
  std::string out;
  std::size_t used = 0;
  for (std::size_t percent = format.find('%'); percent != std::string_view::npos;
       percent = format.find('%')) {
    out += format.substr(0, percent);
    format.remove_prefix(percent);
    const Directive directive = directiveAt(format);
    if (directive.conversion == '%') {
      out += '%';
    } else if (isOneOf(directive.conversion, "@diuxXofFeEgGps")) {
      out += formatted(
          directive, used < count ? arguments[used].storage() : FormatArgument(nullptr).storage());
      ++used;
    } else {
      out += format.substr(0, directive.length);
    }
    format.remove_prefix(directive.length);
  }
  return out += format;
}

}  // namespace foundation

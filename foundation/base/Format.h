#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "foundation/base/Error.h"
#include "foundation/base/Value.h"

namespace foundation {

/// One argument of `format`. It holds references, so it must not outlive the call.
class FormatArgument {
 public:
  struct Absent {};

  FormatArgument(std::nullptr_t) {}
  FormatArgument(const char* text) {
    if (text) storage_ = std::string_view(text);
  }
  FormatArgument(std::string_view text) : storage_(text) {}
  FormatArgument(const std::string& text) : storage_(std::string_view(text)) {}
  FormatArgument(const Value& value) : storage_(&value) {}
  FormatArgument(const Value* value) {
    if (value) storage_ = value;
  }
  FormatArgument(const Error& error) : storage_(&error) {}
  FormatArgument(const void* address) : storage_(address) {}
  FormatArgument(double number) : storage_(number) {}
  FormatArgument(bool flag) : storage_(std::int64_t{flag}) {}
  template <std::signed_integral T>
  FormatArgument(T number) : storage_(std::int64_t{number}) {}
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) FormatArgument(T number) : storage_(std::uint64_t{number}) {}
  /// An empty optional formats as "(null)".
  template <class T>
  FormatArgument(const std::optional<T>& object) {
    if (object) *this = FormatArgument(*object);
  }

  using Storage = std::variant<Absent, std::string_view, const Value*, const Error*, const void*,
                               double, std::int64_t, std::uint64_t>;
  [[nodiscard]] const Storage& storage() const { return storage_; }

 private:
  Storage storage_;
};

std::string formatArguments(std::string_view format, const FormatArgument* arguments,
                            std::size_t count);

/// The platform's string formatting: "%@" for objects (text, values, errors; "(null)" for an absent
/// one), %d %i %u %x %X %lu %ld %llu %lld with flags and width for numbers, %f, %p, %s and %%. A
/// directive that does not fit its argument's type acts as "%@"; a missing argument is an absent
/// object.
template <class... Arguments>
std::string format(std::string_view text, const Arguments&... arguments) {
  if constexpr (sizeof...(arguments) == 0) {
    return formatArguments(text, nullptr, 0);
  } else {
    const FormatArgument list[] = {FormatArgument(arguments)...};
    return formatArguments(text, list, sizeof...(arguments));
  }
}

/// "%@" of one value: text as is, arrays in `( )` and dictionaries in `{ }` over several lines,
/// booleans 1 and 0, dates `2015-03-01 12:00:00 +0000`, data `<0a1b …>`, JSON null `<null>`.
std::string description(const Value& value);
std::string description(Date date);
/// "2015-03-01", the day in UTC.
std::string dayOf(Date date);
/// As `description`, but on one line; strings pass through `escapingControlCharacters`.
std::string singleLineDescription(const Value& value);

/// The platform's class name for a value ("__NSCFNumber"); "(null)" for an absent one.
std::string className(const Value* value);

}  // namespace foundation

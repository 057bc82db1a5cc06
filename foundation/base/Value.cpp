#include "foundation/base/Value.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "foundation/base/Error.h"
#include "foundation/base/Text.h"

namespace foundation {

namespace {

using Integers = std::numeric_limits<std::int64_t>;

std::int64_t truncated(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 0x1p63) return Integers::max();
  if (number < -0x1p63) return Integers::min();
  return static_cast<std::int64_t>(number);
}

std::int64_t leadingInteger(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  std::int64_t number = 0;
  const auto end = text.data() + text.size();
  if (std::from_chars(text.data(), end, number).ec == std::errc::result_out_of_range) {
    return text.starts_with('-') ? Integers::min() : Integers::max();
  }
  return number;
}

template <class T>
std::optional<T> copyOf(const T* object) {
  return object ? std::optional(*object) : std::nullopt;
}

}  // namespace

Date currentDate() { return std::chrono::floor<Date::duration>(std::chrono::system_clock::now()); }

Value::Value(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(Integers::max())) {
    storage_ = static_cast<std::int64_t>(value);
  } else {
    storage_ = value;
  }
}

Value::Value(Error value) : storage_(std::make_shared<const Error>(std::move(value))) {}

const Error* Value::error() const {
  const auto* record = std::get_if<std::shared_ptr<const Error>>(&storage_);
  return record ? record->get() : nullptr;
}

const Value* Value::find(std::string_view key) const {
  const Dictionary* entries = dictionary();
  return entries ? foundation::find(*entries, key) : nullptr;
}

std::optional<bool> Value::boolValue() const {
  if (const auto* flag = boolean()) return *flag;
  if (const auto* number = integer()) return *number != 0;
  if (unsignedInteger()) return true;
  if (const auto* number = real()) return *number != 0;
  if (const auto* text = string()) return foundation::boolValue(*text);
  return std::nullopt;
}

std::optional<std::int64_t> Value::integerValue() const {
  if (const auto* flag = boolean()) return *flag ? 1 : 0;
  if (const auto* number = integer()) return *number;
  if (unsignedInteger()) return Integers::max();
  if (const auto* number = real()) return truncated(*number);
  if (const auto* text = string()) return leadingInteger(*text);
  return std::nullopt;
}

bool operator==(const Value& a, const Value& b) { return a.storage_ == b.storage_; }

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

std::optional<std::string> stringAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return copyOf(value ? value->string() : nullptr);
}

std::optional<Date> dateAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return copyOf(value ? value->date() : nullptr);
}

const Array* arrayAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? value->array() : nullptr;
}

const Dictionary* dictionaryAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? value->dictionary() : nullptr;
}

bool boolAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value && value->boolValue().value_or(false);
}

}  // namespace foundation
